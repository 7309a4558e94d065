#include "tests/daemon/SupervisorFixture.h"

#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <future>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;

TEST_F(DaemonSupervisorTest, restartsBackOffAndGiveUpAfterFiveInTwoMinutes) {
    spawnHealthy();
    std::vector<double> backOffs;
    for (std::size_t round = 0; round < 5; ++round) {
        fallSilent();
        child(round).tellEnd(9);
        loop.drain();
        EXPECT_EQ(status().lastError, "kelvadromed exited with code 9.");
        EXPECT_EQ(status().mode, Mode::starting);
        EXPECT_EQ(status().childPid, std::nullopt);
        launcher->onLaunch = [this](ScriptedChild&) { answer(); };
        const auto result = finish(supervisor->recover());
        EXPECT_EQ(result.mode, Mode::spawned);
        EXPECT_EQ(result.restarts, static_cast<std::int64_t>(round) + 1);
        backOffs.insert(backOffs.end(), pauses.begin(), pauses.end());
    }
    EXPECT_THAT(backOffs, ElementsAre(1, 2, 4, 8, 16));

    fallSilent();
    child(5).tellEnd(9);
    loop.drain();
    for (int i = 0; i < 2; ++i) {
        const auto given = finish(supervisor->recover());
        EXPECT_EQ(given.mode, Mode::failed);
        EXPECT_EQ(
            given.lastError, "kelvadromed stopped 5 times in 2 minutes. Open the log in the inspector.");
        EXPECT_TRUE(pauses.empty());
    }
    // A daemon that answers after all ends the failure but not its words.
    answer();
    EXPECT_EQ(finish(supervisor->recover()).mode, Mode::attached);
    EXPECT_TRUE(status().lastError.has_value());

    // The restarts were decided at 0, 1, 3, 7 and 15 s and it is 31 s: at 123 s two of them still count.
    fallSilent();
    clock->advance(92);
    finish(supervisor->recover());
    EXPECT_NEAR(pauses.front(), 4.0, 1e-6);
    EXPECT_EQ(status().restarts, 6);
}

TEST_F(DaemonSupervisorTest, aHungChildIsEndedAtTheThirdFailedCheckAndReplaced) {
    spawnHealthy();
    child().endsWhenTold = false;
    fallSilent();
    finish(supervisor->recover());
    // An answer in between begins the count anew.
    answer();
    EXPECT_EQ(finish(supervisor->recover()).mode, Mode::spawned);
    fallSilent();
    for (int check = 0; check < 2; ++check) {
        const auto result = finish(supervisor->recover());
        EXPECT_EQ(result.mode, Mode::spawned);
        EXPECT_EQ(result.lastError, std::nullopt);
    }
    std::optional<std::string> said;
    onPause = [&](std::size_t number) {
        if (number == 0)
            said = status().lastError;
    };
    launcher->onLaunch = [this](ScriptedChild&) { answer(); };
    const auto result = finish(supervisor->recover());
    EXPECT_EQ(said, "kelvadromed stopped answering. Restarting it.");
    EXPECT_THAT(child().asked, ElementsAre("terminate", "kill", "close input"));
    ASSERT_EQ(pauses.size(), 31U);
    EXPECT_NEAR(pauses.back(), 1.0, 1e-6);
    EXPECT_EQ(result.mode, Mode::spawned);
    EXPECT_EQ(result.childPid, 101);

    // The end of the first, told late, is no news about the second.
    child().tellEnd(9);
    loop.drain();
    EXPECT_EQ(status(), result);
}

TEST_F(DaemonSupervisorTest, anIntendedStopIsNoNewsWhenItsEndIsToldLate) {
    spawnHealthy();
    finish(supervisor->stop());
    EXPECT_THAT(child().asked, ElementsAre("terminate", "close input"));
    const auto stopped = status();
    EXPECT_EQ(stopped.mode, Mode::spawned);
    EXPECT_EQ(stopped.childPid, std::nullopt);
    child().tellEnd(15);
    loop.drain();
    EXPECT_EQ(status(), stopped);
    finish(supervisor->stop());
    EXPECT_EQ(child().asked.size(), 2U);
}

TEST_F(DaemonSupervisorTest, whatComesWhileNodeIsAskedForItsVersionLeavesNoChildBehind) {
    const std::function<void()> events[] = {
        [this] { loop.run(supervisor->stop()); }, [this] { loop.run(supervisor->setLaunchdOwned(true)); }};
    for (const auto& event : events) {
        std::promise<void> asked;
        std::promise<void> mayAnswer;
        launcher->onVersion = [&] {
            asked.set_value();
            mayAnswer.get_future().wait();
        };
        auto& it = make();
        const auto run = begin(it.start(1.0));
        auto question = asked.get_future();
        loop.until([&] { return question.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
            "the question");
        event();
        mayAnswer.set_value();
        untilPause();
        EXPECT_TRUE(launcher->commands.empty());
        clock->advance(1.0);
        loop.until([&] { return run->ended; }, "the deadline");
        EXPECT_EQ(run->outcome->mode, Mode::failed);
    }
}

TEST_F(DaemonSupervisorTest, twoStartsAtOnceMakeOneChild) {
    std::atomic<int> asked = 0;
    std::promise<void> mayAnswer;
    launcher->onVersion = [&, answered = mayAnswer.get_future().share()] {
        ++asked;
        answered.wait();
    };
    launcher->onLaunch = [this](ScriptedChild&) { answer(); };
    make();
    const auto first = begin(supervisor->start(15.0)), second = begin(supervisor->start(15.0));
    loop.until([&] { return asked == 2; }, "both questions");
    mayAnswer.set_value();
    loop.until([&] { return first->ended && second->ended; }, "both starts");
    EXPECT_EQ(launcher->commands.size(), 1U);
    for (const auto& run : {first, second}) {
        EXPECT_EQ(run->outcome->mode, Mode::spawned);
        EXPECT_EQ(run->outcome->childPid, 100);
    }
}

TEST_F(DaemonSupervisorTest, nothingIsRestartedAfterAStop) {
    spawnHealthy();
    child().tellEnd(9);
    loop.drain();
    const auto stopDuring = [this](const std::function<void()>& reach, const std::function<void()>& goOn) {
        const auto run = begin(supervisor->recover());
        reach();
        loop.run(supervisor->stop());
        goOn();
        loop.until([&] { return run->ended; }, "the recovery to end");
        EXPECT_EQ(run->outcome->restarts, 0);
        EXPECT_EQ(clock->sleepers(), 0U);
        EXPECT_EQ(launcher->commands.size(), 1U);
    };
    const auto gate = std::make_shared<FakeGate>();
    daemon->on("/v1/health", FakeReply::failure("busy", "later", 503).heldBy(gate));
    const auto looks = daemon->requests().size();
    stopDuring([&] { loop.until([&] { return daemon->requests().size() > looks; }, "the look"); },
        [&] { gate->open(); });
    fallSilent();
    stopDuring([&] { untilPause(); }, [&] { clock->advance(1.0); });
    // A later start begins anew.
    launcher->onLaunch = [this](ScriptedChild&) { answer(); };
    EXPECT_EQ(finish(supervisor->start(15.0)).mode, Mode::spawned);
}

TEST_F(DaemonSupervisorTest, cancellationDoesNotCutTheBackOffShort) {
    spawnHealthy();
    fallSilent();
    child().tellEnd(1);
    loop.drain();
    const auto run = begin(supervisor->recover());
    untilPause();
    clock->advance(0.4);
    run->handle.cancel();
    loop.drain();
    ASSERT_EQ(clock->sleepers(), 1U);
    EXPECT_NEAR(clock->untilNext(), 0.6, 1e-6);
    EXPECT_EQ(status().restarts, 0);
    answer();
    clock->advance(0.6);
    loop.until([&] { return status().restarts == 1; }, "the restart");
    loop.until([&] { return status().mode == Mode::attached; }, "the daemon to be found");
}

} // namespace
} // namespace kelvadrome::test
