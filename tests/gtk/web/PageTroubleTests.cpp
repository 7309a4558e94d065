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

TEST_F(PageTroubleTest, aKilledWebProcessLeavesWordsAndThePageComesBackWhereItWas) {
    serve("/", "<p>home</p>");
    serve("/topics", "<p>topics</p>");
    loadAndWait();
    pane->navigate("/topics", ScopeFilter::all, std::nullopt);
    untilAsked("/topics");
    until([&] { return !webkit_web_view_is_loading(pane->view()); }, "the topics");

    ASSERT_GE(killWebProcesses(), 1);
    untilTrouble(ended);
    EXPECT_FALSE(pageShown());
    EXPECT_FALSE(pane->loaded());
    g_signal_emit_by_name(tryAgainButton().gobj(), "clicked");
    until([&] { return pane->loaded() && pageShown(); }, "the page to come back");
    EXPECT_FALSE(pane->trouble());
    EXPECT_EQ(server.requests("/topics").size(), 2u);
    EXPECT_EQ(server.requests("/topics").back().headers.at("cookie"), "kd_session=s1");
    EXPECT_EQ(firstLoads, 1);
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
    turn(PageLoad::quietLimit);
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
    serve("/", "<p>home</p>");
    loadAndWait("s2");
    server.on("/", FakeReply{.status = 503});
    pane->reload();
    untilTrouble("The daemon answered with an error (503).");
    server.on("/", FakeReply::raw("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort"));
    pane->reload();
    untilTrouble("kelvadrome could not reach its page: ");
    server.on("/", FakeReply{.status = 302, .headers = {{"Location", "https://example.test/"}}});
    pane->reload();
    untilTrouble("The daemon sent the page to an address that is not its own.");
    EXPECT_FALSE(pageShown());
    EXPECT_TRUE(opened.empty());
    EXPECT_EQ(firstLoads, 1);
}

TEST_F(PageTroubleTest, halfAPageIsNoPageAndAWholeOneMayWaitForItsPictures) {
    const auto never = std::make_shared<FakeGate>();
    const auto slow = std::make_shared<FakeStream>();
    serve("/picture", "<p>whole</p><img src=/never>");
    server.on("/never", FakeReply{}.heldBy(never));
    server.on("/half", FakeReply{.headers = {{"Content-Type", "text/html"}}, .stream = slow});
    pane->load(credentials(), origin() + "/half");
    untilAsked("/half");
    slow->push("<p>half</p>" + std::string(4000, ' '));
    until([&] { return pageShown(); }, "half the page");
    const std::string tooLong = "The daemon did not answer within a minute.";
    until( // what arrives late begins the minute anew
        [&] {
            if (pane->trouble() && pane->trouble()->starts_with(tooLong))
                return true;
            clock->advance(PageLoad::quietLimit);
            return false;
        },
        tooLong);

    pane->load(credentials(), origin() + "/picture");
    untilAsked("/never");
    until([&] { return pageShown(); }, "the page without its picture");
    until([&] { return clock->sleepers() == 0; }, "the limit to be lifted");
    EXPECT_FALSE(pane->trouble() || pane->loaded());
    slow->close();
    never->open();
}
