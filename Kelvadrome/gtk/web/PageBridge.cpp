#include "Kelvadrome/gtk/web/PageBridge.h"

#include "Kelvadrome/gtk/web/GLibPointers.h"
#include "KelvadromeKit/page/RandomName.h"

namespace kelvadrome {

namespace {

constexpr const char* world = "kelvadrome";
constexpr const char* handler = "relay";

// Both run before any script of the page. What the second leans on later, it takes hold of here, since the
// page and the frames in it can replace every method that they can reach.
constexpr const char* relayScript =
    "document.addEventListener('@EVENT@', event => {"
    "  if (typeof event.detail === 'string')"
    "    window.webkit.messageHandlers.relay.postMessage(location.href + '\\n' + event.detail);"
    "});";

constexpr const char* pageScript = R"((function () {
  'use strict';
  const stringify = JSON.stringify, apply = Reflect.apply, prototypeOf = Reflect.getPrototypeOf;
  const Message = CustomEvent, dispatch = EventTarget.prototype.dispatchEvent, top = document;
  const ours = Object.prototype, event = '@EVENT@';  // not in the function, whose text can be read
  function postMessage(message) {
    if (typeof message === 'object' && message !== null && prototypeOf(message) !== ours) return;
    const detail = stringify(message);
    if (detail !== undefined)
      apply(dispatch, top, [new Message(event, { __proto__: null, detail })]);
  }
  const kelvadrome = Object.freeze({ postMessage });
  const messageHandlers = Object.freeze({ kelvadrome });
  Object.defineProperty(window, 'webkit', { value: Object.freeze({ messageHandlers }) });
})();)";

std::string named(std::string script, const std::string& event) {
    const std::string_view place = "@EVENT@";
    script.replace(script.find(place), place.size(), event);
    return script;
}

} // namespace

PageBridge::PageBridge(WebKitUserContentManager* content, Receive receive)
    : content_(share(content)), receive_(std::move(receive)) {
    const auto event = randomName();
    addTopFrameScript(content, named(relayScript, event), WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START, world);
    addTopFrameScript(content, named(pageScript, event), WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START);
    // Connected first, as the documentation asks, so that no message can come in between.
    g_signal_connect(
        content, ("script-message-received::" + std::string(handler)).c_str(), G_CALLBACK(&received), this);
    webkit_user_content_manager_register_script_message_handler(content, handler, world);
}

PageBridge::~PageBridge() {
    g_signal_handlers_disconnect_by_data(content_.get(), this);
    webkit_user_content_manager_unregister_script_message_handler(content_.get(), handler, world);
}

void PageBridge::received(WebKitUserContentManager*, JSCValue* value, gpointer self) {
    const GText text(jsc_value_to_string(value));
    const std::string_view both(text.get());
    const auto cut = both.find('\n'); // an address has none
    if (cut != std::string_view::npos) {
        static_cast<PageBridge*>(self)->receive_(
            std::string(both.substr(0, cut)), std::string(both.substr(cut + 1)));
    }
}

void addTopFrameScript(WebKitUserContentManager* content, const std::string& source,
    WebKitUserScriptInjectionTime time, const char* world) {
    constexpr auto top = WEBKIT_USER_CONTENT_INJECT_TOP_FRAME;
    auto* script = world
                       ? webkit_user_script_new_for_world(source.c_str(), top, time, world, nullptr, nullptr)
                       : webkit_user_script_new(source.c_str(), top, time, nullptr, nullptr);
    webkit_user_content_manager_add_script(content, script);
    webkit_user_script_unref(script);
}

} // namespace kelvadrome
