#include "Kelvadrome/gtk/web/HoldOff.h"

#include "tests/gtk/web/PaneStage.h"
#include "tests/gtk/web/WebProcesses.h"

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

using PageTroubleTest = PaneStage;

int killWebProcesses() {
    return signalProcesses("WebKitWebProc", SIGKILL);
}

constexpr const char* ended = "The program that shows it ended.";

} // namespace

TEST_F(PageTroubleTest, aKilledWebProcessLeavesWordsAndThePageComesBack) {
    serve("/", "<p>home</p>");
    loadAndWait();
    pane->navigate("/topics", ScopeFilter::all, std::nullopt);
    serve("/topics", "<p>topics</p>");
    untilAsked("/topics");
    until([&] { return !webkit_web_view_is_loading(pane->view()); }, "the topics");

    ASSERT_GE(killWebProcesses(), 1);
    untilTrouble(ended);
    EXPECT_FALSE(pageShown());
    EXPECT_TRUE(tryAgainButton().get_mapped());
    EXPECT_FALSE(pane->loaded());
    turn(HoldOff::first);
    untilAsked("/topics", 2);
    until([&] { return pane->loaded() && pageShown(); }, "the page to come back by itself");
    EXPECT_EQ(firstLoads, 1);

    // Again so soon: it holds off for twice as long, but not when the user wants it now.
    ASSERT_GE(killWebProcesses(), 1);
    untilTrouble(ended);
    EXPECT_TRUE(pane->trouble()->ends_with("in 4 seconds.")) << *pane->trouble();
    turn(HoldOff::first);
    EXPECT_EQ(server.requests("/topics").size(), 2u);
    g_signal_emit_by_name(tryAgainButton().gobj(), "clicked");
    until([&] { return pane->loaded() && pageShown(); }, "the page to come back on demand");
    EXPECT_EQ(server.requests("/topics").size(), 3u);
    EXPECT_EQ(server.requests("/topics").back().headers.at("cookie"), "kd_session=s1");
}

TEST_F(PageTroubleTest, aCallIntoADeadPageLoadsItsAddress) {
    serve("/", "<script>window.kelvadrome = {navigate: () => { for (;;) {} }}</script>");
    serve("/topics", "<p>topics</p>");
    loadAndWait();
    pane->navigate("/topics", ScopeFilter::all, std::nullopt);
    drain();
    ASSERT_GE(killWebProcesses(), 1);
    untilAsked("/topics");
    until([&] { return pane->loaded() && pageShown(); }, "the topics");
}

TEST_F(PageTroubleTest, aPageThatHangsIsEndedSoThatAnotherCanLoad) {
    serve("/", "<p>home</p>");
    loadAndWait();
    pane->runScript("for (;;) {}");
    pane->reload();
    until([&] { return !webkit_web_view_get_is_web_process_responsive(pane->view()); }, "the page to hang");
    turn(WebPane::loadLimit);
    untilTrouble(ended);
    turn(HoldOff::first);
    until([&] { return pane->loaded() && pageShown(); }, "the page to come back");
}

TEST_F(PageTroubleTest, aDaemonThatIsGoneOrBrokenIsToldInWords) {
    auto gone = credentials();
    {
        FakeDaemon shortLived;
        gone.base = fmt::format("http://127.0.0.1:{}", shortLived.listenOnTCP());
    }
    pane->load(gone, NavSection::inbox, ScopeFilter::all);
    untilTrouble("kelvadrome could not reach its page: ");
    EXPECT_FALSE(pageShown());

    // The next session brings a page of its own.
    serve("/", "<p>home</p>");
    loadAndWait("s2");
    EXPECT_TRUE(pageShown());
    EXPECT_FALSE(pane->trouble());

    server.on("/", FakeReply{.status = 503});
    pane->reload();
    untilTrouble("The daemon answered with an error (503).");
    server.on("/", FakeReply::raw("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort"));
    pane->reload();
    untilTrouble("kelvadrome could not reach its page: ");
    server.on("/", FakeReply{.status = 302, .headers = {{"Location", "https://example.test/"}}});
    pane->load(credentials("s3"), NavSection::inbox, ScopeFilter::all);
    untilTrouble("The daemon sent the page to an address that is not its own.");
    EXPECT_TRUE(opened.empty());
    EXPECT_EQ(firstLoads, 1);
}

TEST_F(PageTroubleTest, aRedirectElsewhereIsNoBlankPaneAndIsTriedAgain) {
    server.on("/", FakeReply{.status = 302, .headers = {{"Location", "https://example.test/"}}});
    load();
    untilTrouble("The daemon sent the page to an address that is not its own. kelvadrome tries again in 2");
    EXPECT_FALSE(pageShown());
    turn(2);
    untilTrouble("The daemon sent the page to an address that is not its own. kelvadrome tries again in 4");
    serve("/", "<p>home</p>");
    turn(4);
    until([&] { return pane->loaded() && pageShown(); }, "the page");
}

TEST_F(PageTroubleTest, aRequestMayBeQuietForAMinute) {
    const auto never = std::make_shared<FakeGate>();
    const auto slow = std::make_shared<FakeStream>();
    server.on("/", FakeReply{}.heldBy(never));
    load();
    untilAsked("/");
    until([&] { return clock->sleepers() >= 1; }, "the limit to run");
    turn(WebPane::loadLimit - 1);
    EXPECT_FALSE(pane->trouble());
    turn(1);
    untilTrouble("The daemon did not answer within a minute.");

    // Half a page is no page; one that is whole may wait for its picture for ever.
    serve("/picture", "<p>whole</p><img src=/never>");
    server.on("/never", FakeReply{}.heldBy(never));
    server.on("/half", FakeReply{.headers = {{"Content-Type", "text/html"}}, .stream = slow});
    pane->load(credentials(), origin() + "/half");
    untilAsked("/half");
    slow->push("<p>half</p>" + std::string(4000, ' '));
    until([&] { return pageShown(); }, "half the page");
    turn(WebPane::loadLimit);
    untilTrouble("The daemon did not answer within a minute.");

    pane->load(credentials(), origin() + "/picture");
    untilAsked("/never");
    until([&] { return pageShown(); }, "the page without its picture");
    turn(WebPane::loadLimit);
    EXPECT_FALSE(pane->trouble());
    slow->close();
    never->open();
}

TEST(HoldOff, doublesUpToAMinuteUntilAPageHasStoodForOne) {
    HoldOff holdOff;
    for (const double pause : {2., 4., 8., 16., 32., 60., 60.})
        EXPECT_EQ(holdOff.failed(0), pause);
    holdOff.loaded(100);
    EXPECT_EQ(holdOff.failed(159), 60);
    holdOff.loaded(200);
    holdOff.loaded(250); // a later load of the same page
    EXPECT_EQ(holdOff.failed(260), 2);
    EXPECT_EQ(holdOff.failed(400), 4);
}
