#include "KelvadromeKit/daemon/DaemonSupervisor.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/ScriptedLauncher.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <sys/stat.h>

namespace kelvadrome::test {
namespace {

namespace fs = std::filesystem;
using Mode = DaemonSupervisor::Mode;
using testing::ElementsAre;

/// A supervisor over a scripted child and a real socket, in time that moves only when told.
class DaemonSupervisorTest : public testing::Test {
protected:
    DaemonSupervisorTest() {
        fs::create_directories(folder / "res/node/bin");
        fs::create_directories(folder / "res/kelvadrome");
        std::ofstream(folder / "res/node/bin/node") << "#!/bin/sh\n";
        fs::permissions(folder / "res/node/bin/node", fs::perms::owner_all);
        std::ofstream(folder / "res/kelvadrome/kelvadromed-app.mjs") << "";
        env = DaemonEnvironment(folder / "home", 4000, folder / "res");
    }

    DaemonSupervisor& make() {
        supervisor = std::make_shared<DaemonSupervisor>(env, DaemonClient(env.socketPath(), loop.pool()),
            DaemonSupervisor::World{loop.executor(), &loop.pool(), clock, launcher}, processEnvironment);
        return *supervisor;
    }

    void answer() {
        fs::create_directories(env.home);
        daemon.emplace(env.socketPath());
        daemon->on("/v1/health", FakeReply::data(R"({"pid":100,"home":"/h"})"));
    }
    void fallSilent() { daemon.reset(); }

    /// Runs a task to its end, turning the clock through each pause; `onPause` sees its number, from 0,
    /// first.
    template <class T>
    T finish(Task<T> task) {
        pauses.clear();
        Outcome<T> outcome;
        bool ended = false;
        spawn(loop.executor(), "test", collect(std::move(task), &outcome, &ended));
        while (true) {
            loop.until([&] { return ended || clock->sleepers() > 0; }, "the task to end or to pause");
            if (ended)
                return outcome.take();
            const auto next = clock->untilNext();
            if (onPause) {
                onPause(pauses.size());
                loop.drain();
            }
            pauses.push_back(next);
            clock->advance(next);
        }
    }
    template <class T>
    static Task<> collect(Task<T> task, Outcome<T>* outcome, bool* ended) {
        *outcome = co_await attempt(std::move(task));
        *ended = true;
    }

    DaemonSupervisor::Status status() { return loop.run(supervisor->currentStatus()); }
    ScriptedChild& child(std::size_t number = 0) { return *launcher->children.at(number); }

    /// A healthy child of the supervisor's.
    void spawnHealthy() {
        launcher->onLaunch = [this](ScriptedChild&) { answer(); };
        ASSERT_EQ(finish(make().start(15.0)).mode, Mode::spawned);
        launcher->onLaunch = nullptr;
    }

    TemporaryFolder folder;
    DaemonEnvironment env;
    TestLoop loop;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<ScriptedLauncher> launcher = std::make_shared<ScriptedLauncher>();
    EnvironmentMap processEnvironment = {{"PATH", "/usr/bin"}, {"HOME", "/home/u"}, {"SECRET", "x"}};
    std::optional<FakeDaemon> daemon;
    std::shared_ptr<DaemonSupervisor> supervisor;
    std::function<void(std::size_t)> onPause;
    std::vector<double> pauses;
};

TEST_F(DaemonSupervisorTest, aDaemonThatAnswersIsAttachedToWithoutALookForNode) {
    answer();
    auto& it = make();
    EXPECT_EQ(status(), DaemonSupervisor::Status{});
    EXPECT_EQ(finish(it.start(15.0)), DaemonSupervisor::Status{.mode = Mode::attached});
    EXPECT_TRUE(launcher->commands.empty());
}

TEST_F(DaemonSupervisorTest, aChildIsLaunchedAsTheDaemonExpectsAndWaitedFor) {
    onPause = [this](std::size_t number) {
        if (number == 1)
            answer();
    };
    const auto result = finish(make().start(15.0));
    EXPECT_EQ(result, (DaemonSupervisor::Status{.mode = Mode::spawned,
                          .nodePath = folder / "res/node/bin/node",
                          .nodeVersion = "v24.1.0",
                          .childPid = 100}));
    EXPECT_THAT(pauses, ElementsAre(testing::DoubleNear(0.15, 1e-6), testing::DoubleNear(0.15, 1e-6)));

    const auto& command = launcher->commands.at(0);
    EXPECT_EQ(command.executable, folder / "res/node/bin/node");
    EXPECT_THAT(
        command.arguments, ElementsAre(folder / "res/kelvadrome/kelvadromed-app.mjs", "--home", env.home,
                               "--static", folder / "res/kelvadrome/web/dist", "--port", "4000"));
    auto environment = env.daemonEnvironment(processEnvironment);
    environment["KELVADROME_PARENT_STDIN"] = "1";
    EXPECT_EQ(command.environment, environment);
    EXPECT_EQ(command.currentDirectory, env.home);
    EXPECT_EQ(fs::status(env.home).permissions(), fs::perms::owner_all);
}

TEST_F(DaemonSupervisorTest, whatKeepsAChildFromStartingIsSaidInItsOwnWords) {
    struct Row {
        const char* what;
        std::function<void()> spoil;
        std::string words;
    };
    const std::string missing = "The bundled daemon is missing. Rebuild the app with scripts/macos/build.sh.";
    std::vector<Row> rows = {
        {"an old Node", [&] { launcher->version = "v22.12.0\n"; },
            "Node v22.12.0 is too old. kelvadrome needs Node 22.13 or later."},
        {"a mute Node", [&] { launcher->version = std::nullopt; },
            "Node ? is too old. kelvadrome needs Node 22.13 or later."},
        {"no launcher", [&] { fs::remove(folder / "res/kelvadrome/kelvadromed-app.mjs"); }, missing},
        {"no resources",
            [&] {
                processEnvironment["PATH"] = folder / "res/node/bin";
                env.resources.reset();
            },
            missing},
        {"a home that can't be made",
            [&] {
                std::ofstream(folder / "file") << "";
                env.home = folder / "file/home";
            },
            (folder / "file") + " could not be created: Not a directory"},
        {"a launch that fails", [&] { launcher->failure = EACCES; },
            (folder / "res/node/bin/node") + ": Permission denied"},
    };
    if (!Files::isExecutable("/usr/local/bin/node") && !Files::isExecutable("/opt/homebrew/bin/node")) {
        rows.push_back({"no Node",
            [&] {
                fs::remove(folder / "res/node/bin/node");
                processEnvironment.erase("PATH");
            },
            "Node was not found. Install Node 24 with Homebrew, or use a build that carries Node."});
    }
    const auto env0 = env;
    const auto processEnvironment0 = processEnvironment;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        env = env0;
        processEnvironment = processEnvironment0;
        launcher = std::make_shared<ScriptedLauncher>();
        std::ofstream(folder / "res/kelvadrome/kelvadromed-app.mjs") << "";
        row.spoil();
        const auto result = finish(make().start(15.0));
        EXPECT_EQ(result.mode, Mode::failed);
        EXPECT_EQ(result.lastError, row.words);
        EXPECT_TRUE(launcher->commands.empty());
        EXPECT_EQ(result.childPid, std::nullopt);
    }
}

TEST_F(DaemonSupervisorTest, aChildSeenDeadBeforeItsEndIsToldStoppedAtStart) {
    launcher->onLaunch = [](ScriptedChild& child) {
        child.say("first\nno such port\n");
        child.die();
    };
    const auto result = finish(make().start(15.0));
    EXPECT_EQ(result.mode, Mode::failed);
    EXPECT_EQ(result.lastError, "kelvadromed stopped at start. no such port");
    EXPECT_TRUE(pauses.empty());
    EXPECT_TRUE(child().asked.empty());

    // Its end, told after that, is an exit like any other.
    child().tellEnd(1);
    loop.drain();
    EXPECT_EQ(status().lastError, "kelvadromed exited with code 1.");
    EXPECT_EQ(status().mode, Mode::starting);
    EXPECT_EQ(status().childPid, std::nullopt);
}

TEST_F(DaemonSupervisorTest, aChildWhoseEndIsToldDuringTheWaitIsWaitedForToTheDeadline) {
    onPause = [this](std::size_t number) {
        if (number == 0)
            child().tellEnd(3);
    };
    auto& it = make();
    const auto result = finish(it.start(15.9));
    EXPECT_EQ(result.mode, Mode::failed);
    EXPECT_EQ(result.lastError, "kelvadromed did not answer within 15 s.");
    EXPECT_EQ(pauses.size(), 106U);
}

TEST_F(DaemonSupervisorTest, aChildThatNeverAnswersIsEndedFirstGentlyThenForcibly) {
    launcher->onLaunch = [](ScriptedChild& child) { child.endsWhenTold = false; };
    const auto result = finish(make().start(0.3));
    EXPECT_EQ(result.lastError, "kelvadromed did not answer within 0 s.");
    EXPECT_EQ(result.childPid, std::nullopt);
    EXPECT_THAT(child().asked, ElementsAre("terminate", "kill", "close input"));
    EXPECT_EQ(pauses.size(), 2U + 30U);
    EXPECT_NEAR(pauses.back(), 0.1, 1e-6);
}

TEST_F(DaemonSupervisorTest, theLoginItemsDaemonIsWaitedForAndNoChildIsStarted) {
    auto& it = make();
    loop.run(it.setLaunchdOwned(true));
    onPause = [this](std::size_t number) {
        if (number == 2)
            answer();
    };
    EXPECT_EQ(finish(it.start(15.0)), DaemonSupervisor::Status{.mode = Mode::attached});
    EXPECT_EQ(pauses.size(), 3U);
    EXPECT_NEAR(pauses.front(), 0.25, 1e-6);

    fallSilent();
    onPause = nullptr;
    const auto late = finish(it.start(15.0));
    EXPECT_EQ(late.mode, Mode::starting);
    EXPECT_EQ(late.lastError,
        "The background service has not answered yet. macOS restarts it; Settings, General, "
        "Background shows its state.");
    EXPECT_EQ(pauses.size(), 60U);

    for (int i = 0; i < 7; ++i) {
        const auto gone = finish(it.recover());
        EXPECT_EQ(gone, (DaemonSupervisor::Status{
                            .mode = Mode::starting, .lastError = "The background service is restarting."}));
    }
    answer();
    EXPECT_EQ(finish(it.recover()).mode, Mode::attached);
    EXPECT_TRUE(launcher->commands.empty());
}

TEST_F(DaemonSupervisorTest, aChildThatIsStillThereComesBeforeTheLoginItemsRule) {
    spawnHealthy();
    loop.run(supervisor->setLaunchdOwned(true));
    fallSilent();
    EXPECT_EQ(finish(supervisor->recover()).mode, Mode::spawned);
    finish(supervisor->recover());
    EXPECT_EQ(child().asked.size(), 0U);
    // At the third check the child goes; what follows is the login item's.
    const auto result = finish(supervisor->recover());
    EXPECT_THAT(child().asked, ElementsAre("terminate", "close input"));
    EXPECT_EQ(result.restarts, 1);
    EXPECT_EQ(launcher->commands.size(), 1U);
    EXPECT_EQ(result.mode, Mode::starting);
}

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
        Outcome<DaemonSupervisor::Status> outcome;
        bool ended = false;
        spawn(loop.executor(), "start", collect(it.start(1.0), &outcome, &ended));
        auto question = asked.get_future();
        loop.until([&] { return question.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
            "the question");
        event();
        mayAnswer.set_value();
        loop.until([&] { return clock->sleepers() > 0; }, "the wait for health");
        EXPECT_TRUE(launcher->commands.empty());
        while (!ended) {
            loop.until([&] { return ended || clock->sleepers() > 0; }, "the deadline");
            if (!ended)
                clock->advance(1.0);
        }
        EXPECT_EQ(outcome->mode, Mode::failed);
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
    Outcome<DaemonSupervisor::Status> outcomes[2];
    bool ended[2] = {false, false};
    for (int i = 0; i < 2; ++i)
        spawn(loop.executor(), "start", collect(supervisor->start(15.0), &outcomes[i], &ended[i]));
    loop.until([&] { return asked == 2; }, "both questions");
    mayAnswer.set_value();
    loop.until([&] { return ended[0] && ended[1]; }, "both starts");
    EXPECT_EQ(launcher->commands.size(), 1U);
    for (auto& outcome : outcomes) {
        EXPECT_EQ(outcome->mode, Mode::spawned);
        EXPECT_EQ(outcome->childPid, 100);
    }
}

TEST_F(DaemonSupervisorTest, nothingIsRestartedAfterAStop) {
    spawnHealthy();
    child().tellEnd(9);
    loop.drain();
    const auto stopDuring = [this](const std::function<void()>& reach, const std::function<void()>& goOn) {
        Outcome<DaemonSupervisor::Status> outcome;
        bool ended = false;
        spawn(loop.executor(), "recover", collect(supervisor->recover(), &outcome, &ended));
        reach();
        loop.run(supervisor->stop());
        goOn();
        loop.until([&] { return ended; }, "the recovery to end");
        EXPECT_EQ(outcome->restarts, 0);
        EXPECT_EQ(clock->sleepers(), 0U);
        EXPECT_EQ(launcher->commands.size(), 1U);
    };
    const auto gate = std::make_shared<FakeGate>();
    daemon->on("/v1/health", FakeReply::failure("busy", "later", 503).heldBy(gate));
    const auto looks = daemon->requests().size();
    stopDuring([&] { loop.until([&] { return daemon->requests().size() > looks; }, "the look"); },
        [&] { gate->open(); });
    fallSilent();
    stopDuring([&] { loop.until([&] { return clock->sleepers() > 0; }, "the back-off"); },
        [&] { clock->advance(1.0); });
    // A later start begins anew.
    launcher->onLaunch = [this](ScriptedChild&) { answer(); };
    EXPECT_EQ(finish(supervisor->start(15.0)).mode, Mode::spawned);
}

TEST_F(DaemonSupervisorTest, cancellationEndsTheWaitForAChildAndTheChild) {
    auto& it = make();
    Outcome<DaemonSupervisor::Status> outcome;
    bool ended = false;
    const auto handle = spawn(loop.executor(), "start", collect(it.start(15.0), &outcome, &ended));
    loop.until([&] { return clock->sleepers() > 0; }, "the wait for health");
    handle.cancel();
    loop.until([&] { return !child().asked.empty(); }, "the child to be ended");
    loop.drain();
    clock->advance(0.1);
    loop.drain();
    EXPECT_THAT(child().asked, ElementsAre("terminate", "close input"));
    EXPECT_EQ(status().mode, Mode::failed);
    EXPECT_EQ(status().childPid, std::nullopt);
}

TEST_F(DaemonSupervisorTest, cancellationDoesNotCutTheBackOffShort) {
    spawnHealthy();
    fallSilent();
    child().tellEnd(1);
    loop.drain();
    Outcome<DaemonSupervisor::Status> outcome;
    bool ended = false;
    const auto handle = spawn(loop.executor(), "recover", collect(supervisor->recover(), &outcome, &ended));
    loop.until([&] { return clock->sleepers() > 0; }, "the back-off");
    clock->advance(0.4);
    handle.cancel();
    loop.drain();
    ASSERT_EQ(clock->sleepers(), 1U);
    EXPECT_NEAR(clock->untilNext(), 0.6, 1e-6);
    EXPECT_EQ(status().restarts, 0);
    answer();
    clock->advance(0.6);
    loop.until([&] { return status().restarts == 1; }, "the restart");
    loop.until([&] { return status().mode == Mode::attached; }, "the daemon to be found");
}

TEST_F(DaemonSupervisorTest, theLogTailKeepsTheLastFortyLinesOfThreeHundredCharacters) {
    spawnHealthy();
    std::string lines;
    for (int i = 1; i <= 41; ++i)
        lines += fmt::format("line {}\n\n", i);
    child().say(lines);
    loop.drain();
    auto tail = status().logTail;
    ASSERT_EQ(tail.size(), 40U);
    EXPECT_EQ(tail.front(), "line 2");
    EXPECT_EQ(tail.back(), "line 41");

    std::string wide;
    for (int i = 0; i < 301; ++i)
        wide += "é";
    child().say(wide + "\nbad \xff byte");
    loop.drain();
    tail = status().logTail;
    ASSERT_EQ(tail.size(), 40U);
    EXPECT_EQ(tail.front(), "line 4");
    EXPECT_EQ(tail[38], wide.substr(0, 600));
    EXPECT_EQ(tail.back(), "bad \xEF\xBF\xBD byte");
}

TEST_F(DaemonSupervisorTest, theChildsCallbacksDoNotKeepTheSupervisor) {
    spawnHealthy();
    const std::weak_ptr<DaemonSupervisor> weak = supervisor;
    supervisor.reset();
    loop.drain();
    EXPECT_TRUE(weak.expired());
    child().say("words");
    child().tellEnd(0);
    loop.drain();
}

} // namespace
} // namespace kelvadrome::test
