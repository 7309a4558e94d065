#pragma once

#include "KelvadromeKit/support/JSON.h"

#include <functional>
#include <memory>
#include <string>
#include <webkit/webkit.h>

namespace kelvadrome {

/// The page's way to the shell. WebKitGTK doesn't name the frame that a message comes from, so the real
/// channel ends in a script world of its own, into which a script is put in the top frame only. What the page
/// sees as `window.webkit.messageHandlers.kelvadrome` is an object in the top frame that hands each message
/// over to that script, under an event name that nobody else knows. Frames inside the page have no such
/// object. One of our own origin could still reach for its parent's and speak in the parent's realm, which
/// nothing here can tell from the page: so the view lets no frame have a document (`WebPane::decide`). The
/// test of the message's realm is for the frames that a page makes and fills itself.
class PageBridge {
public:
    using OnMessage = std::function<void(const std::string& type, const JSONObject& body)>;
    /// The address of the frame at that moment, and the message as JSON.
    using Receive = std::function<void(const std::string& url, const std::string& json)>;

    PageBridge(WebKitUserContentManager* content, Receive receive);
    ~PageBridge();
    PageBridge(const PageBridge&) = delete;
    PageBridge& operator=(const PageBridge&) = delete;

private:
    static void received(WebKitUserContentManager*, JSCValue* value, gpointer self);

    std::shared_ptr<WebKitUserContentManager> content_;
    Receive receive_;
};

/// Adds a script that runs in the top frame only, in `world` when given.
void addTopFrameScript(WebKitUserContentManager* content, const std::string& source,
    WebKitUserScriptInjectionTime time, const char* world = nullptr);

} // namespace kelvadrome
