#include "tests/gtk/web/PaneStage.h"

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

using WebPaneTest = PaneStage;

/// What the page tells of itself once it stands.
const std::string selfPortrait =
    "<head></head><script>const early = document.documentElement.dataset.shell;</script>"
    "<div class=scopes>all</div><iframe srcdoc='<p>x</p>'></iframe><script>onload = () => {" +
    post("{type: 'self', early, scopes: getComputedStyle(document.querySelector('.scopes')).display,"
         "frame: String(frames[0].document.documentElement.dataset.shell), cookie: document.cookie}") +
    "}</script>";

} // namespace

TEST_F(WebPaneTest, theFirstRequestBringsItsCookieAndThePageKnowsItsShell) {
    serve("/", selfPortrait);
    loadAndWait();
    untilMessage(R"({"type":"self","early":"native","scopes":"none","frame":"undefined","cookie":""})");
    const auto first = server.requests("/").front();
    EXPECT_EQ(first.query, "shell=native");
    EXPECT_EQ(first.headers.at("cookie"), "kd_session=s1");
    EXPECT_TRUE(first.headers.at("user-agent").ends_with(" kelvadrome/0.1.2 KelvadromeShell/mac"))
        << first.headers.at("user-agent");
    EXPECT_TRUE(pageShown());
    EXPECT_FALSE(pane->trouble());
    EXPECT_TRUE(webkit_network_session_is_ephemeral(webkit_web_view_get_network_session(pane->view())));

    loadAndWait("s2");
    EXPECT_EQ(server.requests("/").back().headers.at("cookie"), "kd_session=s2");
    EXPECT_EQ(pane->cookieValue, "s2");
}

TEST_F(WebPaneTest, aCookieThatCannotBeReadLeavesTheRequestAsItIs) {
    serve("/", "<p>login</p>");
    auto odd = credentials();
    odd.setCookieHeader = "kd_session=s1; Domain=example.test";
    pane->load(odd, NavSection::inbox, ScopeFilter::all);
    until([&] { return firstLoads == 1; }, "the page");
    EXPECT_FALSE(server.requests("/").front().headers.contains("cookie"));
}

TEST_F(WebPaneTest, onlyMessagesInTheirFormGetThrough) {
    serve("/", "<script>" + post("5") + post("'text'") + post("[1]") + post("null") + post("undefined") +
                   post("{}") + post("{type: 3}") + post("{type: {a: 1}}") +
                   post("{type: 'route', route: '/to\\n\\u0000pics', deep: [{a: null}], gone: undefined}") +
                   "try {" + post("{type: 'big', n: 1n}") + "} catch (e) {" + post("{type: e.name}") +
                   "}</script>");
    loadAndWait();
    untilMessage(R"({"type":"TypeError"})");
    EXPECT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages.front(), R"({"type":"route","route":"/to\n\u0000pics","deep":[{"a":null}]})");
}

TEST_F(WebPaneTest, messagesOfAPageElsewhereAreDropped) {
    serve("/", "<p>x</p>");
    loadAndWait();
    pane->base = fmt::format("http://127.0.0.1:{}", port + 1);
    run(pane->evaluate(post("{type: 'elsewhere'}")));
    pane->base = origin();
    run(pane->evaluate(post("{type: 'here'}")));
    untilMessage(R"({"type":"here"})");
    EXPECT_EQ(messages.size(), 1u);
}

TEST_F(WebPaneTest, theThemeIsToldWhenThePageIsReadyAndWhenItHasLoaded) {
    serve("/", "<script>window.kelvadrome = {setTheme: name => {" + post("{type: 'theme', name}") +
                   "}}</script><p>x</p>");
    pane->theme = "da\"rk";
    loadAndWait();
    untilMessage(R"({"type":"theme","name":"da\"rk"})");
    messages.clear();
    pane->theme = "light";
    run(pane->evaluate(post("{type: 'ready'}")));
    until([&] { return messages.size() == 2; }, "both messages");
    EXPECT_EQ(
        messages, (std::vector<std::string>{R"({"type":"ready"})", R"({"type":"theme","name":"light"})"}));
}

TEST_F(WebPaneTest, beforeThePageHasLoadedACallLoadsItsAddress) {
    const auto gate = std::make_shared<FakeGate>();
    server.on("/", FakeReply{.headers = {{"Content-Type", "text/html"}},
                       .body = "<script>window.kelvadrome = {navigate: () => true}</script>"}
                       .heldBy(gate));
    serve("/topics", "<p>topics</p>");
    load();
    untilAsked("/");
    pane->navigate("/topics", ScopeFilter::family, "c 1");
    untilAsked("/topics");
    EXPECT_EQ(server.requests("/topics").front().query, "shell=native&scope=family&card=c%201");
    until([&] { return firstLoads == 1; }, "the topics, and not the end of what they replaced");
    gate->open();
    EXPECT_FALSE(pane->trouble());
}

TEST_F(WebPaneTest, aLoadedPageIsAskedAndItsAddressLoadedWhenItCannot) {
    serve("/",
        "<script>let can = true; window.kelvadrome = {navigate: path => {" +
            post("{type: 'navigate', path}") +
            "; if (can === 'throws') throw 1; return can}, search: q => {" + post("{type: 'search', q}") +
            "}}</script><div class=scopes><button class=kd-seg__item aria-pressed=true "
            "onclick=\"this.textContent='pressed'\"> Family </button><button class=kd-seg__item onclick=\"" +
            post("{type: 'pressed'}") + "\">Tolvena 2</button></div>");
    serve("/topics", "<p>topics</p>");
    serve("/search", "<p>results</p>");
    loadAndWait();
    pane->navigate("/topics", ScopeFilter::all, "a\"b");
    untilMessage(R"({"type":"navigate","path":"/topics?card=a\"b"})");
    pane->search("  two words ", ScopeFilter::all);
    untilMessage(R"({"type":"search","q":"two words"})");
    // An older page knows no setScope: its button is pressed, unless it is.
    pane->setScope(ScopeFilter::tolvena, "/");
    untilMessage(R"({"type":"pressed"})");
    pane->setScope(ScopeFilter::family, "/");
    EXPECT_TRUE(run(pane->evaluate("document.querySelector('button').textContent === ' Family '")));
    EXPECT_EQ(server.requests("/").size(), 1u);
    EXPECT_TRUE(server.requests("/topics").empty() && server.requests("/search").empty());

    pane->runScript("can = 'throws'");
    pane->mode = InterfaceMode::expert;
    pane->navigate("/topics", ScopeFilter::all, "a\"b");
    untilAsked("/topics");
    EXPECT_EQ(server.requests("/topics").front().query, "shell=native&mode=expert&card=a%22b");
    until([&] { return !webkit_web_view_is_loading(pane->view()); }, "a page without the object");
    pane->search(" x&y ", ScopeFilter::all);
    untilAsked("/search");
    EXPECT_EQ(server.requests("/search").front().query, "shell=native&mode=expert&q=x%26y");
    EXPECT_EQ(firstLoads, 1);
}

namespace {

/// The addresses that a decision was asked for, in order.
class Decisions {
public:
    Decisions()
        : hook_(g_signal_add_emission_hook(
              g_signal_lookup("decide-policy", WEBKIT_TYPE_WEB_VIEW), 0, &asked, this, nullptr)) {}
    ~Decisions() {
        g_signal_remove_emission_hook(g_signal_lookup("decide-policy", WEBKIT_TYPE_WEB_VIEW), hook_);
    }
    bool made(const std::string& url) const { return std::ranges::count(urls_, url) > 0; }

private:
    static gboolean asked(GSignalInvocationHint*, guint, const GValue* values, gpointer self) {
        auto* decision = static_cast<WebKitPolicyDecision*>(g_value_get_object(values + 1));
        if (WEBKIT_IS_NAVIGATION_POLICY_DECISION(decision)) {
            auto* action = webkit_navigation_policy_decision_get_navigation_action(
                WEBKIT_NAVIGATION_POLICY_DECISION(decision));
            static_cast<Decisions*>(self)->urls_.emplace_back(
                webkit_uri_request_get_uri(webkit_navigation_action_get_request(action)));
        }
        return TRUE;
    }

    std::vector<std::string> urls_;
    gulong hook_;
};

std::string pressLink(const std::string& url, const std::string& target) {
    return "(() => { const a = document.createElement('a'); a.href = '" + url + "'; a.target = '" + target +
           "'; document.body.append(a); a.click() })()";
}

} // namespace

TEST_F(WebPaneTest, thePageStaysAtHomeAndPressedLinksGoToTheBrowser) {
    FakeDaemon foreign;
    const auto away = fmt::format("127.0.0.1:{}/", foreign.listenOnTCP());
    serve("/", "<p>home</p>");
    serve("/inside", "<p>inside</p>");
    loadAndWait();
    const Decisions decisions;
    const auto go = [&](const std::string& script, const std::string& url) {
        pane->runScript(script);
        until([&] { return decisions.made(url); }, "a decision on " + url);
    };
    for (const auto& [url, target] :
        std::vector<std::pair<std::string, std::string>>{{"https://example.test/a", ""},
            {"http://" + away + "b", ""}, {"https://example.test/c", "_blank"},
            {"http://" + away + "d", "_blank"}, {"mailto:a@example.test", ""}}) {
        go(pressLink(url, target), url);
    }
    EXPECT_TRUE(run(pane->evaluate("window.open('https://example.test/e') === null")));
    go("const f = document.createElement('iframe'); f.src = 'http://" + away + "f'; document.body.append(f)",
        "http://" + away + "f");
    go("location = 'https://example.test/g'", "https://example.test/g");
    go("location = 'http://" + away + "h'", "http://" + away + "h");
    go(pressLink(origin() + "/inside", ""), origin() + "/inside");
    untilAsked("/inside");
    EXPECT_EQ(opened, (std::vector<std::string>{
                          "https://example.test/a", "http://" + away + "b", "https://example.test/c"}));
    EXPECT_TRUE(foreign.requests().empty());
    EXPECT_FALSE(pane->trouble());
}
