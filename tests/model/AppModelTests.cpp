#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

TEST(AppModel, startsTheDaemonThenThePageThenTheRestInOrder) {
    World world;
    world.defaults->set("KDScopeFilter", std::string("family"));
    world.flags.section = NavSection::topics;
    world.cards({World::cardJSON("a"), World::cardJSON("b")});
    int told = 0;
    world.make();
    const auto subscription = world.model->observe([&] { ++told; });
    EXPECT_EQ(world.state().connection, Connection::starting());
    world.start();
    world.model->start();
    world.loop.drain();

    EXPECT_EQ(world.state().connection, Connection::ready());
    EXPECT_EQ(world.state().supervisorStatus->mode, DaemonSupervisor::Mode::attached);
    EXPECT_EQ(world.state().credentialsExpiry, "port 4711");
    EXPECT_EQ(world.state().notificationsAllowed, true);
    EXPECT_EQ(world.state().cards.size(), 2U);
    EXPECT_EQ(world.web->calls.lines(), std::vector<std::string>{"load s1 topics family"});
    EXPECT_EQ(world.calls.lines(), (std::vector<std::string>{"relay start", "voice refresh", "delivery"}));
    EXPECT_EQ(
        world.screen->calls.lines(), (std::vector<std::string>{"setBadge 2", "openMainWindow", "activate"}));
    EXPECT_EQ(world.asked("/v1/stream"), 1U);
    EXPECT_GT(told, 0);

    told = 0;
    world.poll();
    EXPECT_EQ(told, 0) << "a steady poll changes nothing";
}

TEST(AppModel, aRefreshAppliesWhatItCouldReadAndKeepsTheRest) {
    World world;
    world.cards({World::cardJSON("a")});
    world.daemon->on("/v1/board",
        FakeReply::data(R"({"topics":[{"id":"t","title":"First"},{"id":"t","title":"Second"}]})"));
    world.daemon->on("/v1/receipts/list",
        FakeReply::data(fmt::format(
            R"({{"receipts":[{{"event_id":"1","action":"x","line":"l","ts":"{0}"}},{{"event_id":"2","action":"x","line":"l",)"
            R"("ts":"2027-01-12T08:00:00Z"}},{{"event_id":"3","action":"x","line":"l","ts":"today"}}]}})",
            "2027-01-15T08:00:00.250Z")));
    world.start();
    EXPECT_EQ(world.state().topics.at("t").title, "First");
    EXPECT_EQ(world.state().topicCount, 2);
    EXPECT_EQ(world.state().receiptsToday, 1);
    EXPECT_EQ(world.asked("/v1/receipts/list"), 1U);
    EXPECT_EQ(world.daemon->requests("/v1/receipts/list")[0].body, R"({"limit":200})");

    world.daemon->on("/v1/cards/list", FakeReply::failure("internal", "no"));
    world.daemon->on("/v1/board", FakeReply::data(R"({"topics":[]})"));
    world.daemon->on("/v1/agents/status", FakeReply::failure("not_found", "no", 404));
    world.daemon->on("/v1/inbox",
        FakeReply::data(
            R"({"counts":{"needs_you":0,"answered_by_rules_today":1,"agents_working":2,"verified_today":0}})"));
    world.pid = 101;
    world.refresh();
    EXPECT_EQ(world.state().cards.size(), 1U);
    EXPECT_TRUE(world.state().topics.empty());
    EXPECT_EQ(world.state().topicCount, 0);
    EXPECT_EQ(world.state().agents, std::nullopt) << "a daemon without that route has none";
    EXPECT_EQ(world.state().counts->agentsWorking, 2);
    EXPECT_EQ(world.state().health->pid, 101);
    EXPECT_EQ(world.screen->calls.last("setBadge"), "setBadge none");
}

TEST(AppModel, theOlderOfTwoRefreshesIsThrownAwayWhole) {
    World world;
    world.streamWanted = false;
    world.start();
    const auto before = world.asked("/v1/cards/list");
    auto gate = std::make_shared<FakeGate>();
    world.daemon->on("/v1/cards/list",
        FakeReply::data(fmt::format(R"({{"cards":[{}]}})", World::cardJSON("old"))).heldBy(gate));
    world.daemon->on("/v1/board", FakeReply::data(R"({"topics":[{"id":"old"}]})"));
    bool ended = false;
    spawn(world.loop.executor(), "old refresh", [](World& w, bool& over) -> Task<> {
        co_await w.model->refresh();
        over = true;
    }(world, ended));
    world.loop.until([&] { return world.asked("/v1/cards/list") > before; }, "the first refresh to ask");

    world.cards({World::cardJSON("new")});
    world.daemon->on("/v1/board", FakeReply::data(R"({"topics":[]})"));
    world.clock->advance(1);
    world.refresh();
    const auto refreshed = world.state().lastRefresh;
    EXPECT_EQ(world.state().cards.at(0).id, "new");
    world.clock->advance(1);
    gate->open();
    world.loop.until([&] { return ended; }, "the first refresh to end");
    EXPECT_EQ(world.state().cards.at(0).id, "new");
    EXPECT_TRUE(world.state().topics.empty());
    EXPECT_EQ(world.state().lastRefresh, refreshed);
}

TEST(AppModel, whatComesWithinAShortTimeIsOneRefresh) {
    World world;
    world.start();
    const auto before = world.asked("/v1/cards/list");
    std::size_t rounds = 0;
    for (const auto* name : {"card.opened", "unheard.of", ""}) {
        world.stream->pushEvent(name, "{}");
        world.loop.until([&] { return world.clock->sleepers() == 2; }, "a refresh to be scheduled");
        world.model->scheduleRefresh();
        world.loop.drain();
        EXPECT_EQ(world.asked("/v1/cards/list"), before + rounds) << "not before the pause is over";
        world.clock->advance(0.2);
        world.loop.until([&] { return world.state().lastRefresh == world.clock->now(); }, "the refresh");
        world.loop.drain();
        EXPECT_EQ(world.asked("/v1/cards/list"), before + ++rounds) << "after the event '" << name << "'";
        EXPECT_EQ(world.clock->sleepers(), 1U);
    }
}

TEST(AppModel, aPingIsNothingAndAnEndedStreamIsOpenedAgainAfterTwoSeconds) {
    World world;
    world.start();
    const auto refreshes = world.asked("/v1/cards/list");
    const auto next = std::make_shared<FakeStream>();
    world.daemon->on("/v1/stream", FakeReply::events(next));
    world.stream->pushEvent("ping", "{}");
    world.stream->close();
    world.loop.until([&] { return world.clock->sleepers() >= 2; }, "the pause");
    world.loop.drain();
    EXPECT_EQ(world.clock->sleepers(), 2U) << "the ping scheduled nothing";
    EXPECT_NEAR(world.clock->untilNext(), 2.0, 1e-6);
    world.clock->advance(2.0);
    world.loop.until([&] { return next->opened(); }, "the stream to be open again");
    EXPECT_EQ(world.asked("/v1/cards/list"), refreshes) << "a lost stream forces no refresh";
    EXPECT_EQ(world.state().connection, Connection::ready());
}

TEST(AppModel, aNewPidInHealthMeansConnectingAfresh) {
    World world;
    world.start();
    world.poll();
    EXPECT_EQ(world.web->calls.countOf("load"), 1U) << "the same pid is the same daemon";
    const auto refreshes = world.asked("/v1/cards/list");
    world.pid = 200;
    world.poll();
    EXPECT_EQ(world.page->logins, 2) << "the old daemon's session is no use with the new one";
    EXPECT_EQ(world.asked("/v1/cards/list"), refreshes + 1);
    EXPECT_EQ(world.state().health->pid, 200);
    const auto loads = world.web->calls.countOf("load");
    EXPECT_GT(loads, 1U);
    world.poll();
    EXPECT_EQ(world.web->calls.countOf("load"), loads);
    EXPECT_EQ(world.page->logins, 2);
}

TEST(AppModel, aQuietStreamStillGetsARefreshAfterMoreThanTwentySeconds) {
    World world;
    world.start();
    const auto refreshes = world.asked("/v1/cards/list");
    for (int i = 0; i < 4; ++i)
        world.poll();
    EXPECT_EQ(world.asked("/v1/cards/list"), refreshes) << "20 s is not above 20 s";
    world.poll();
    EXPECT_EQ(world.asked("/v1/cards/list"), refreshes + 1);
}

TEST(AppModel, withoutAPageSessionEachHealthyPollTriesAgain) {
    World world;
    world.refuseLogin = true;
    world.start();
    EXPECT_EQ(world.state().connection.state, Connection::State::failed);
    EXPECT_TRUE(world.state().connection.message.starts_with("kelvadrome could not open its page session. "))
        << world.state().connection.message;
    EXPECT_EQ(world.state().lastRefresh, std::nullopt);
    EXPECT_EQ(world.asked("/v1/onboarding/status"), 0U);
    EXPECT_EQ(world.screen->calls.count("openMainWindow"), 1U);
    world.poll();
    EXPECT_EQ(world.state().connection.state, Connection::State::failed);
    EXPECT_EQ(world.state().health->pid, 100);
    world.page->refuseLogin = false;
    world.poll();
    EXPECT_EQ(world.state().connection, Connection::ready());
    EXPECT_EQ(world.web->calls.lines(), std::vector<std::string>{"load s1 inbox all"});
}

TEST(AppModel, aDaemonThatCannotBeBroughtBackFailsUntilItAnswersAgain) {
    World world;
    world.cards({World::cardJSON("a")});
    world.start();
    world.daemon->stop();
    world.streamWanted = false;
    world.loop.until([&] { return world.clock->sleepers() == 2; }, "the stream's pause");
    std::vector<Connection> seen;
    const auto subscription = world.model->observe([&] {
        if (seen.empty() || seen.back() != world.state().connection)
            seen.push_back(world.state().connection);
    });
    const auto pollUntil = [&](Connection::State wanted) {
        world.loop.until(
            [&] {
                if (world.state().connection.state == wanted)
                    return true;
                const auto next = world.clock->untilNext();
                if (next > 0)
                    world.clock->advance(next);
                return false;
            },
            "polls to change the connection");
    };
    pollUntil(Connection::State::failed);
    world.loop.drain();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0], Connection::starting());
    EXPECT_EQ(seen[1], Connection::failed(*world.state().supervisorStatus->lastError));
    EXPECT_EQ(world.state().cards.size(), 1U) << "the fields keep their last values";

    world.daemon.emplace(world.socketPath);
    world.serve();
    world.pid = 101;
    pollUntil(Connection::State::ready);
    EXPECT_EQ(world.web->calls.countOf("load"), 2U);
}

TEST(AppModel, aDaemonThatOnlyPausedIsReadyAgainWithTheSessionThatItKnows) {
    World world;
    world.start();
    const auto busy = std::make_shared<std::atomic<int>>(1);
    world.daemon->on("/v1/health", [busy](const FakeRequest&) {
        return (*busy)-- > 0 ? FakeReply::failure("internal", "busy")
                             : FakeReply::data(R"({"pid":100,"home":"/h"})");
    });
    world.poll();
    EXPECT_EQ(world.state().connection, Connection::starting());
    EXPECT_EQ(world.state().supervisorStatus->mode, DaemonSupervisor::Mode::attached);
    world.poll();
    EXPECT_EQ(world.state().connection, Connection::ready());
    EXPECT_EQ(world.page->logins, 1);
    EXPECT_EQ(world.web->calls.countOf("load"), 2U);
}

TEST(AppModel, aFailedSupervisorIsShownAndRetryTriesAgain) {
    World world;
    world.streamWanted = false;
    world.daemon->stop();
    world.make();
    world.model->start();
    world.loop.until([&] { return world.calls.has("delivery"); }, "the start to go on");
    EXPECT_EQ(world.state().connection, Connection::failed(*world.state().supervisorStatus->lastError));
    EXPECT_EQ(world.calls.count("relay start"), 0U);
    EXPECT_EQ(world.page->logins, 0);
    EXPECT_EQ(world.screen->calls.count("openMainWindow"), 1U);

    world.daemon.emplace(world.socketPath);
    world.serve();
    world.model->retry();
    world.loop.until([&] { return world.state().connection == Connection::ready(); }, "the retry");
    EXPECT_EQ(world.web->calls.countOf("load"), 1U);
}

TEST(AppModel, aSessionMintedInTheBackgroundReachesThePages) {
    World world;
    world.start();
    world.refresh();
    EXPECT_EQ(world.web->calls.countOf("load"), 1U);
    world.model->openOnboarding(false);
    world.loop.until([&] { return world.screen->onboardingMade; }, "the setup window");
    world.page->replies["/v1/cards/answer"] = FakePage::failure("unauthorized", "log in");
    world.model->answer(World::card("a"), "Yes");
    world.loop.until([&] { return world.state().panelError == "log in"; }, "the answer to be refused twice");
    world.refresh();
    EXPECT_EQ(world.web->calls.last("load"), "load s2 inbox all");
    EXPECT_EQ(world.screen->calls.last("renewOnboarding"), "renewOnboarding s2");
    world.refresh();
    EXPECT_EQ(world.web->calls.countOf("load"), 2U);
}

struct FirstRunCase {
    const char* reply; // empty: no answer
    bool forced;
    bool setup;
    std::size_t asked;
};

TEST(AppModel, theFirstRunOpensSetupOnlyWhenTheDaemonSaysSoOrItIsForced) {
    for (const auto& row : std::vector<FirstRunCase>{{R"({"completed":true})", false, false, 1},
             {R"({"completed":false})", false, true, 1}, {"{}", false, false, 1},
             {R"({"completed":true})", true, true, 1}, {"", false, false, 3}}) {
        World world;
        world.flags.onboarding = row.forced;
        const std::string reply = row.reply;
        world.daemon->on("/v1/onboarding/status",
            reply.empty() ? FakeReply::failure("internal", "no") : FakeReply::data(reply));
        world.make();
        world.model->start();
        world.loop.until(
            [&] {
                if (world.clock->sleepers() == 1 && std::abs(world.clock->untilNext() - 1.0) < 1e-6)
                    world.clock->advance(1.0);
                return world.calls.has("delivery");
            },
            "the decision");
        world.loop.until([&] { return !row.setup || world.screen->onboardingMade; }, "the setup window");
        EXPECT_EQ(world.asked("/v1/onboarding/status"), row.asked) << reply;
        EXPECT_EQ(world.screen->calls.count("openMainWindow"), row.setup ? 0U : 1U) << reply;
        EXPECT_EQ(world.screen->calls.count("orderOutMain"), row.setup ? 1U : 0U) << reply;
        EXPECT_EQ(world.state().onboardingActive, row.setup) << reply;
        if (row.setup) {
            EXPECT_TRUE(world.screen->calls.has("presentOnboarding s1 first system"));
        }
    }
}

TEST(AppModel, afterStopNothingOfItRunsOn) {
    World world;
    world.start();
    world.model->answer(World::card("a"), "Yes");
    world.model->scheduleRefresh();
    world.loop.until(
        [&] { return world.page->posts.size() == 1 && world.clock->sleepers() == 3; }, "tasks under way");
    world.loop.run(world.model->stop());
    EXPECT_EQ(world.calls.lines().back(), "relay stop");
    world.loop.until(
        [&] { return world.clock->sleepers() == 0 && world.stream->clientGone(); }, "everything to end");
    const auto asked = world.daemon->requests().size();
    world.clock->advance(100);
    world.model->scheduleRefresh();
    world.model->start();
    world.loop.drain();
    EXPECT_EQ(world.clock->sleepers(), 0U);
    EXPECT_EQ(world.daemon->requests().size(), asked);
    const std::weak_ptr<AppModel> weak = world.model;
    world.model.reset();
    world.loop.drain();
    EXPECT_TRUE(weak.expired()) << "no task holds it";
}

} // namespace
} // namespace kelvadrome::test
