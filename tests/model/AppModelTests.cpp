#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

class AppModelTest : public testing::Test, protected World {};

TEST_F(AppModelTest, startsTheDaemonThenThePageThenTheRestInOrder) {
    defaults->set("KDScopeFilter", std::string("family"));
    flags.section = NavSection::topics;
    cards({cardJSON("a"), cardJSON("b")});
    make();
    EXPECT_EQ(state().connection, Connection::starting());
    start();
    model->start();
    loop.drain();

    EXPECT_EQ(state().connection, Connection::ready());
    EXPECT_EQ(state().supervisorStatus->mode, DaemonSupervisor::Mode::attached);
    EXPECT_EQ(state().credentialsExpiry, "port 4711");
    EXPECT_EQ(state().notificationsAllowed, true);
    EXPECT_EQ(state().cards.size(), 2U);
    EXPECT_EQ(web->calls.lines(), std::vector<std::string>{"load s1 topics family"});
    EXPECT_EQ(calls.lines(), (std::vector<std::string>{"relay start", "voice refresh", "delivery"}));
    EXPECT_EQ(screen->calls.lines(), (std::vector<std::string>{"setBadge 2", "openMainWindow", "activate"}));
    EXPECT_EQ(asked("/v1/stream"), 1U);
    const auto subscription = model->observe([] { ADD_FAILURE() << "a steady poll changes nothing"; });
    poll();
}

TEST_F(AppModelTest, aRefreshAppliesWhatItCouldReadAndKeepsTheRest) {
    cards({cardJSON("a")});
    reply("/v1/board", R"({"topics":[{"id":"t","title":"First"},{"id":"t","title":"Second"}]})");
    reply("/v1/receipts/list",
        R"({"receipts":[{"event_id":"1","action":"x","line":"l","ts":"2027-01-15T08:00:00.250Z"},
        {"event_id":"2","action":"x","line":"l","ts":"2027-01-12T08:00:00Z"}]})");
    start();
    EXPECT_EQ(state().topics.at("t").title, "First");
    EXPECT_EQ(state().topicCount, 2);
    EXPECT_EQ(state().receiptsToday, 1);

    refuse("/v1/cards/list");
    reply("/v1/board", R"({"topics":[]})");
    daemon->on("/v1/agents/status", FakeReply::failure("not_found", "no", 404));
    refresh();
    EXPECT_EQ(state().cards.size(), 1U);
    EXPECT_EQ(state().topicCount, 0);
    EXPECT_EQ(state().agents, std::nullopt) << "a daemon without that route has none";
}

TEST_F(AppModelTest, theOlderOfTwoRefreshesIsThrownAwayWhole) {
    streamWanted = false;
    start();
    const auto before = asked("/v1/cards/list");
    auto gate = std::make_shared<FakeGate>();
    daemon->on(
        "/v1/cards/list", FakeReply::data(fmt::format(R"({{"cards":[{}]}})", cardJSON("old"))).heldBy(gate));
    reply("/v1/board", R"({"topics":[{"id":"old"}]})");
    bool ended = false;
    spawn(loop.executor(), "old refresh", [](World& w, bool& over) -> Task<> {
        co_await w.model->refresh();
        over = true;
    }(*this, ended));
    until([&] { return asked("/v1/cards/list") > before; }, "the first refresh to ask");

    reply("/v1/board", R"({"topics":[]})");
    clock->advance(1);
    readCards({cardJSON("new")});
    EXPECT_EQ(state().cards.at(0).id, "new");
    clock->advance(1);
    gate->open();
    until([&] { return ended; }, "the first refresh to end");
    EXPECT_EQ(state().cards.at(0).id, "new");
    EXPECT_TRUE(state().topics.empty());
}

TEST_F(AppModelTest, whatComesWithinAShortTimeIsOneRefresh) {
    start();
    const auto before = asked("/v1/cards/list");
    stream->push("event: card.opened\ndata: {}\n\n");
    until([&] { return clock->sleepers() == 2; }, "a refresh to be scheduled");
    model->scheduleRefresh();
    loop.drain();
    EXPECT_EQ(asked("/v1/cards/list"), before) << "not before the pause is over";
    clock->advance(0.2);
    until([&] { return state().lastRefresh == clock->now(); }, "the refresh");
    loop.drain();
    EXPECT_EQ(asked("/v1/cards/list"), before + 1);
    EXPECT_EQ(clock->sleepers(), 1U);
}

TEST_F(AppModelTest, aPingIsNothingAndAnEndedStreamIsOpenedAgainAfterTwoSeconds) {
    start();
    const auto next = std::make_shared<FakeStream>();
    daemon->on("/v1/stream", FakeReply::events(next));
    stream->push("event: ping\ndata: {}\n\n");
    stream->close();
    until([&] { return clock->sleepers() >= 2; }, "the pause");
    loop.drain();
    EXPECT_EQ(clock->sleepers(), 2U) << "the ping scheduled nothing";
    EXPECT_NEAR(clock->untilNext(), 2.0, 1e-6);
    clock->advance(2.0);
    until([&] { return next->opened(); }, "the stream to be open again");
}

TEST_F(AppModelTest, aNewPidInHealthMeansConnectingAfresh) {
    start();
    poll();
    EXPECT_EQ(web->calls.countOf("load"), 1U) << "the same pid is the same daemon";
    pid = 200;
    poll();
    EXPECT_EQ(page->logins, 2) << "the old daemon's session is no use with the new one";
    const auto loads = web->calls.countOf("load");
    EXPECT_GT(loads, 1U);
    poll();
    EXPECT_EQ(web->calls.countOf("load"), loads);
    EXPECT_EQ(page->logins, 2);
}

TEST_F(AppModelTest, aQuietStreamStillGetsARefreshAfterMoreThanTwentySeconds) {
    start();
    const auto refreshes = asked("/v1/cards/list");
    for (int i = 0; i < 4; ++i)
        poll();
    EXPECT_EQ(asked("/v1/cards/list"), refreshes) << "20 s is not above 20 s";
    poll();
    EXPECT_EQ(asked("/v1/cards/list"), refreshes + 1);
}

TEST_F(AppModelTest, withoutAPageSessionEachHealthyPollTriesAgain) {
    refuseLogin = true;
    start();
    EXPECT_EQ(state().connection.state, Connection::State::failed);
    poll();
    EXPECT_EQ(state().connection.state, Connection::State::failed);
    page->refuseLogin = false;
    poll();
    EXPECT_EQ(state().connection, Connection::ready());
    EXPECT_EQ(web->calls.lines(), std::vector<std::string>{"load s1 inbox all"});
}

TEST_F(AppModelTest, aDaemonThatCannotBeBroughtBackFailsUntilItAnswersAgain) {
    cards({cardJSON("a")});
    start();
    daemon->stop();
    streamWanted = false;
    loop.until([&] { return clock->sleepers() == 2; }, "the stream's pause");
    const auto pollUntil = [&](Connection::State wanted) {
        turnUntil([&] { return state().connection.state == wanted; }, "polls to change the connection");
    };
    pollUntil(Connection::State::starting);
    pollUntil(Connection::State::failed);
    EXPECT_EQ(state().connection, Connection::failed(*state().supervisorStatus->lastError));
    EXPECT_EQ(state().cards.size(), 1U) << "the fields keep their last values";

    daemon.emplace(socketPath);
    serve();
    pid = 101;
    pollUntil(Connection::State::ready);
    EXPECT_EQ(web->calls.countOf("load"), 2U);
}

TEST_F(AppModelTest, aFailedSupervisorIsShownAndRetryTriesAgain) {
    streamWanted = false;
    daemon->stop();
    make();
    model->start();
    loop.until([&] { return calls.has("delivery"); }, "the start to go on");
    EXPECT_EQ(state().connection, Connection::failed(*state().supervisorStatus->lastError));

    daemon.emplace(socketPath);
    serve();
    model->retry();
    loop.until([&] { return state().connection == Connection::ready(); }, "the retry");
}

TEST_F(AppModelTest, aQuitWhileTheDaemonComesUpIsNoFailure) {
    resources = folder / "res";
    installDaemon(*resources);
    daemon->stop();
    make().start();
    loop.until(
        [&] { return !launcher->children.empty() && clock->sleepers() > 0; }, "the child to be waited for");
    loop.run(model->stop());
    loop.drain();
    EXPECT_EQ(state().connection, Connection::starting());
    EXPECT_EQ(clock->sleepers(), 0U);
}

TEST_F(AppModelTest, aSessionMintedInTheBackgroundReachesThePages) {
    start();
    refresh();
    EXPECT_EQ(web->calls.countOf("load"), 1U);
    model->openOnboarding(false);
    until([&] { return screen->onboardingMade; }, "the setup window");
    page->replies["/v1/cards/answer"] = FakePage::failure("unauthorized", "log in");
    model->answer(card("a"), "Yes");
    until([&] { return state().panelError == "log in"; }, "the answer to be refused twice");
    refresh();
    EXPECT_EQ(web->calls.last("load"), "load s2 inbox all");
    EXPECT_EQ(screen->calls.last("renewOnboarding"), "renewOnboarding s2");
    refresh();
    EXPECT_EQ(web->calls.countOf("load"), 2U);
}

TEST(AppModel, theFirstRunOpensSetupOnlyWhenTheDaemonSaysSoOrItIsForced) {
    for (const auto& [reply, forced, setup] :
        std::vector<std::tuple<std::string, bool, bool>>{{R"({"completed":false})", false, true},
            {"{}", false, false}, {R"({"completed":true})", true, true}, {"", false, false}}) {
        World world;
        world.flags.onboarding = forced;
        if (reply.empty())
            world.refuse("/v1/onboarding/status");
        else
            world.reply("/v1/onboarding/status", reply);
        world.make().start();
        world.turnUntil([&] { return world.calls.has("delivery"); }, "the decision", 1);
        world.until([&] { return !setup || world.screen->onboardingMade; }, "the setup window");
        EXPECT_EQ(world.screen->calls.has("openMainWindow"), !setup) << reply;
        EXPECT_EQ(world.screen->calls.has("presentOnboarding s1 first system"), setup) << reply;
    }
}

TEST_F(AppModelTest, afterStopNothingOfItRunsOn) {
    start();
    model->answer(card("a"), "Yes");
    model->scheduleRefresh();
    until([&] { return page->posts.size() == 1 && clock->sleepers() == 3; }, "tasks under way");
    loop.run(model->stop());
    EXPECT_EQ(calls.lines().back(), "relay stop");
    until([&] { return clock->sleepers() == 0 && stream->clientGone(); }, "everything to end");
    const auto asked = daemon->requests().size();
    clock->advance(100);
    model->scheduleRefresh();
    model->start();
    loop.drain();
    EXPECT_EQ(clock->sleepers(), 0U);
    EXPECT_EQ(daemon->requests().size(), asked);
    const std::weak_ptr<AppModel> weak = model;
    model.reset();
    loop.drain();
    EXPECT_TRUE(weak.expired()) << "no task holds it";
}

} // namespace
} // namespace kelvadrome::test
