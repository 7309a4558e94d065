#include "tests/gtk/web/PaneStage.h"
#include "tests/gtk/web/WebProcesses.h"
#include "tests/support/Squatter.h"

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

using PageDoorTest = PaneStage;

/// What a frame does that can reach into the page: it speaks with the page's own objects, as the page.
const std::string attack = R"(<script>
const attempt = act => { try { act() } catch {} };
attempt(() => parent.webkit.messageHandlers.kelvadrome.postMessage(parent.JSON.parse('{"type":"evil"}')));
attempt(() => parent.eval('webkit.messageHandlers.kelvadrome.postMessage({type: 3 + "vil"})'));
attempt(() => parent.document.body.append(parent.document.createElement('evil')));
</script>)";

/// A page that asks the daemon for something all the time, and counts what it didn't get.
const std::string restless = "<script>let failures = 0; const again = () => fetch('/poll').catch(() => "
                             "++failures).then(() => setTimeout(again, 5)); again()</script>";

std::string asAttribute(std::string text) {
    for (auto at = text.find('"'); at != std::string::npos; at = text.find('"', at))
        text.replace(at, 1, "&quot;");
    return text;
}

} // namespace

TEST_F(PageDoorTest, whatTakesThePortOfADeadDaemonGetsNothingFromThePageThatShows) {
    serve("/", restless);
    loadAndWait();
    untilAsked("/poll");
    server.stop();
    peers->refuse("Not the daemon.");
    Squatter squatter(Squatter::User::own, port);
    until([&] { return squatter.taken().size() >= 3; }, "the page to come to the squatter");
    until([&] { return run(pane->evaluate("failures > 3")); }, "the page to get nothing there");
    pane->runScript("location = '/elsewhere'");
    untilTrouble("kelvadrome could not reach its page: ");
    pane->reload();
    untilTrouble("kelvadrome could not reach its page: Not the daemon.");
    EXPECT_EQ(squatter.taken().find_first_not_of('+'), std::string::npos) << squatter.taken();
}

TEST_F(PageDoorTest, thePageReachesNoOtherPortOfThisMachine) {
    FakeDaemon other;
    const auto elsewhere = fmt::format("http://127.0.0.1:{}/", other.listenOnTCP());
    serve("/", "<img src='" + elsewhere + "' onerror=\"" + post("{type: 'refused'}") + "\"><script>fetch('" +
                   elsewhere + "', {mode: 'no-cors', credentials: 'include'}).catch(() => { " +
                   post("{type: 'nothing'}") + " })</script>");
    loadAndWait();
    untilMessage(R"({"type":"refused"})");
    untilMessage(R"({"type":"nothing"})");
    EXPECT_EQ(other.connections(), 0u);
}

TEST_F(PageDoorTest, noFrameShowsADocumentThatCouldSpeakForThePage) {
    serve("/attack", attack);
    serve("/after", "");
    serve("/", "<body><iframe src=/attack></iframe><iframe srcdoc=\"" + asAttribute(attack) + "\"></iframe>" +
                   "<object data=/attack></object><embed src=/attack><script>const blob = new Blob([`" +
                   attack.substr(0, attack.rfind("</")) + "<` + `/script>`], {type: 'text/html'});" +
                   "const frame = document.createElement('iframe'); frame.src = URL.createObjectURL(blob);"
                   "document.body.append(frame)</script>");
    loadAndWait();
    untilAsked("/attack", 3);
    // The answers to the frames come before the one to this.
    until([&] { return run(pane->evaluate("fetch('/after'), true")); }, "a script to run");
    untilAsked("/after");
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(run(pane->evaluate("!document.querySelector('evil')")));
    EXPECT_TRUE(messages.empty()) << messages.front();
    EXPECT_TRUE(pageShown());
}

TEST_F(PageDoorTest, aCookieStoreThatHangsEndsInWordsAndThePageIsTriedAgain) {
    serve("/", "<p>home</p>");
    loadAndWait();
    ASSERT_GE(signalProcesses("WebKitNetworkPr", SIGSTOP), 1);
    load("s2");
    until([&] { return clock->sleepers() >= 1; }, "the limit to run");
    turn(10);
    untilTrouble("The program that keeps the page's cookie does not answer.");
    ASSERT_GE(signalProcesses("WebKitNetworkPr", SIGCONT), 1);
    EXPECT_EQ(server.requests("/").size(), 1u);
    turn(2);
    until([&] { return pane->loaded() && pageShown(); }, "the page");
    EXPECT_EQ(server.requests("/").back().headers.at("cookie"), "kd_session=s2");
}
