#include "Kelvadrome/gtk/web/GLibPointers.h"
#include "Kelvadrome/gtk/web/PageBridge.h"

#include "tests/gtk/web/Stage.h"

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

/// Everything that a frame can try, then a word to the page that it has.
const std::string attack = R"(<script>
const evil = {type: 'evil', from: location.href};
const attempt = act => { try { act() } catch {} };
const names = ['kelvadrome', 'relay', 'message', 'webkit', ...(parentNames())];
function parentNames() { try { return parent.stolen } catch { return [] } }
attempt(() => window.webkit.messageHandlers.kelvadrome.postMessage(evil));
attempt(() => window.webkit.messageHandlers.relay.postMessage(location.href + '\n' + JSON.stringify(evil)));
attempt(() => parent.webkit.messageHandlers.kelvadrome.postMessage(evil));
attempt(() => top.webkit.messageHandlers.kelvadrome.postMessage.call(top, {__proto__: null, ...evil}));
attempt(() => parent.webkit.messageHandlers.relay.postMessage(location.href + '\n' + JSON.stringify(evil)));
attempt(() => parent.stolen.push(...String(parent.webkit.messageHandlers.kelvadrome.postMessage).match(/[0-9a-f]{32}/g)));
attempt(() => parent.steal());
for (const name of names) for (const target of [() => document, () => window, () => parent, () => parent.document])
  for (const detail of [evil, JSON.stringify(evil)])
    attempt(() => target().dispatchEvent(new CustomEvent(name, {detail, bubbles: true})));
parent.postMessage(evil, '*');
parent.postMessage(JSON.stringify(evil), '*');
parent.postMessage('done', '*');
</script>)";

/// The page around the frames. It says "end" when `frames` documents in them have done their worst; until
/// then it says "mine" at each. A frame of its own origin gets `steal`, which has the page's own methods
/// watched.
std::string page(const std::string& frames, int documents) {
    return R"(<script>
window.stolen = [];
window.steal = () => {
  for (const [owner, name] of [[EventTarget.prototype, 'dispatchEvent'], [window, 'CustomEvent'], [window, 'Event'],
       [Reflect, 'apply'], [JSON, 'stringify'], [Reflect, 'getPrototypeOf'], [Function.prototype, 'call'],
       [Function.prototype, 'apply'], [document, 'addEventListener'], [EventTarget.prototype, 'addEventListener']])
    owner[name] = function (...given) { stolen.push(...given.flat().map(String)); return undefined; };
  for (const key of ['type', 'bubbles', 'cancelable', 'composed', 'toJSON'])
    Object.defineProperty(Object.prototype, key, {get() { stolen.push(String(this)); }, set() {}, configurable: true});
};
let done = 0;
window.onmessage = event => {
  if (event.data !== 'done') return;
  webkit.messageHandlers.kelvadrome.postMessage('mine');
  if (++done === )" +
           std::to_string(documents) +
           R"() webkit.messageHandlers.kelvadrome.postMessage('end ' + stolen.filter(text => /[0-9a-f]{32}/.test(text)).length);
};
</script>)" +
           frames;
}

class PageBridgeTest : public Stage {
protected:
    void SetUp() override {
        Stage::SetUp();
        if (IsSkipped())
            return;
        const auto content = adopt(webkit_user_content_manager_new());
        bridge.emplace(content.get(), [this](const std::string& url, const std::string& json) {
            received.push_back(url + " " + json);
        });
        const auto session = adopt(webkit_network_session_new_ephemeral());
        view = adopt(WEBKIT_WEB_VIEW(g_object_ref_sink(g_object_new(WEBKIT_TYPE_WEB_VIEW, "network-session",
            session.get(), "user-content-manager", content.get(), nullptr))));
        away = fmt::format("http://127.0.0.1:{}", foreign.listenOnTCP());
        serve("/attack", attack);
        foreign.on("/attack", FakeReply{.headers = {{"Content-Type", "text/html"}}, .body = attack});
    }
    void TearDown() override {
        bridge.reset();
        view.reset();
        drain();
    }

    /// Loads the page and expects its own messages only.
    void expectOnlyThePage(const std::string& frames, int documents) {
        serve("/", page(frames, documents));
        const auto home = origin() + "/";
        webkit_web_view_load_uri(view.get(), home.c_str());
        until([&] { return !received.empty() && received.back().contains("\"end "); }, "the frames' end");
        std::vector<std::string> wanted(static_cast<std::size_t>(documents), home + " \"mine\"");
        wanted.push_back(home + " \"end 0\"");
        EXPECT_EQ(received, wanted);
    }

    FakeDaemon foreign;
    std::string away;
    std::optional<PageBridge> bridge;
    std::shared_ptr<WebKitWebView> view;
    std::vector<std::string> received;
};

} // namespace

TEST_F(PageBridgeTest, noFrameIsHeardWhereverItIsFromOrGoes) {
    // Of our origin; of another; home, away and home again; and what has no address of its own.
    serve("/next", attack + "<script>location = '" + away + "/next'</script>");
    foreign.on("/next", FakeReply{.headers = {{"Content-Type", "text/html"}},
                            .body = attack + "<script>location = '" + origin() + "/attack'</script>"});
    expectOnlyThePage(
        "<iframe src=/attack></iframe><iframe src=" + away +
            "/attack></iframe><iframe src=/next></iframe><iframe id=blank></iframe>"
            "<iframe srcdoc='<script>location = \"/attack\"</script>'></iframe>"
            "<iframe src='data:text/html,<script>parent.postMessage(\"done\",\"*\");"
            "webkit.messageHandlers.kelvadrome.postMessage({type:\"evil\"})</script>'></iframe>",
        7);
    EXPECT_EQ(foreign.requests("/attack").size(), 1u);
    EXPECT_EQ(foreign.requests("/next").size(), 1u);
}

TEST_F(PageBridgeTest, thePageIsHeardAtOnceAndOnEachOfItsDocuments) {
    serve("/",
        "<script>webkit.messageHandlers.kelvadrome.postMessage({n: 1, text: 'a\\nb'});"
        "history.pushState(null, '', '/topics'); webkit.messageHandlers.kelvadrome.postMessage('pushed');"
        "window.webkit = null; addEventListener('pagehide', () => "
        "webkit.messageHandlers.kelvadrome.postMessage('gone')); location = '/next'</script>");
    serve("/next",
        "<script>webkit.messageHandlers.kelvadrome.postMessage(Object.keys(webkit.messageHandlers))"
        ";webkit.messageHandlers.kelvadrome.postMessage('next')</script>");
    webkit_web_view_load_uri(view.get(), (origin() + "/").c_str());
    until([&] { return !received.empty() && received.back().ends_with("\"next\""); }, "the second document");
    EXPECT_EQ(received,
        (std::vector<std::string>{origin() + "/ {\"n\":1,\"text\":\"a\\nb\"}",
            origin() + "/topics \"pushed\"", origin() + "/topics \"gone\"", origin() + "/next \"next\""}));
}
