#include "KelvadromeKit/daemon/DaemonLog.h"
#include "KelvadromeKit/daemon/DaemonSupervisor.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/Paced.h"
#include "tests/support/ScriptedLauncher.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <sys/stat.h>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;
namespace fs = std::filesystem;
using Mode = DaemonSupervisor::Mode;

/// A supervisor over a scripted child and a real socket, in time that moves only when told.
class DaemonSupervisorTest : public testing::Test {
protected:
    DaemonSupervisorTest() {
        installDaemon(folder / "res");
        env = DaemonEnvironment(folder / "home", 4000, folder / "res");
    }

    DaemonSupervisor& make() {
        supervisor = std::make_shared<DaemonSupervisor>(env, DaemonClient(env.socketPath(), loop.pool()),
            DaemonSupervisor::World{loop.executor(), &loop.pool(), clock, launcher, folder / "err.log"},
            processEnvironment);
        return *supervisor;
    }

    void answer() {
        Files::makeFolders(env.home, 0700);
        daemon.emplace(env.socketPath());
        daemon->on("/v1/health", FakeReply::data(R"({"pid":100,"home":"/h"})"));
    }
    void fallSilent() { daemon.reset(); }

    /// Runs a task to its end, turning the clock through each pause; `onPause` sees its number, from 0,
    /// first.
    template <class T>
    T finish(Task<T> task) {
        pauses.clear();
        return runPaced(loop, *clock, std::move(task), [this](double pause) {
            if (onPause) {
                onPause(pauses.size());
                loop.drain();
            }
            pauses.push_back(pause);
        });
    }

    /// A start or a recovery that is under way.
    struct Run {
        Outcome<DaemonSupervisor::Status> outcome;
        bool ended = false;
        TaskHandle handle;
    };
    std::shared_ptr<Run> begin(Task<DaemonSupervisor::Status> task) {
        auto run = std::make_shared<Run>();
        run->handle = spawn(loop.executor(), "test", follow(std::move(task), run));
        return run;
    }
    static Task<> follow(Task<DaemonSupervisor::Status> task, std::shared_ptr<Run> run) {
        run->outcome = co_await attempt(std::move(task));
        run->ended = true;
    }
    void untilPause() {
        loop.until([&] { return clock->sleepers() > 0; }, "a pause");
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

TEST_F(DaemonSupervisorTest, aDaemonInAHomeThatOthersMayWriteToIsNeitherAskedNorStarted) {
    answer();
    ::chmod(env.home.c_str(), 0777);
    const auto result = finish(make().start(15.0));
    EXPECT_EQ(result.mode, Mode::failed);
    EXPECT_TRUE(result.lastError.value_or("").starts_with("Other users may write to the data home"))
        << *result.lastError;
    EXPECT_EQ(daemon->connections(), 0u);
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
    EXPECT_EQ(fs::status(env.home).permissions(), fs::perms::owner_all);
}

TEST_F(DaemonSupervisorTest, whatKeepsAChildFromStartingIsSaidInItsOwnWords) {
    struct Row {
        std::function<void()> spoil;
        std::string words;
    };
    const std::vector<Row> rows = {
        {[&] { launcher->version.text = "v22.12.0\n"; },
            "Node v22.12.0 is too old. kelvadrome needs Node 22.13 or later."},
        {[&] { launcher->version = {.problem = "Exec format error"}; },
            "Node ? is too old. kelvadrome needs Node 22.13 or later. Node does not start: Exec format "
            "error."},
        {[&] { fs::remove(folder / "res/kelvadrome/kelvadromed-app.mjs"); },
            "The bundled daemon is missing. Rebuild the app with scripts/macos/build.sh."},
        {[&] {
             std::ofstream(folder / "file") << "";
             env.home = folder / "file/home";
         },
            (folder / "file") + " could not be created: Not a directory"},
        {[&] { env.home = folder / std::string(103, 'x'); },
            fmt::format(
                "The path of the data home {} is too long: its socket would have {} bytes, and at most "
                "103 are possible. Choose a home with a shorter path.",
                folder / std::string(103, 'x'), (folder / std::string(103, 'x')).size() + 17)},
        {[&] { launcher->failure = EACCES; }, (folder / "res/node/bin/node") + ": Permission denied"},
    };
    const auto env0 = env;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words);
        env = env0;
        launcher = std::make_shared<ScriptedLauncher>();
        std::ofstream(folder / "res/kelvadrome/kelvadromed-app.mjs") << "";
        row.spoil();
        const auto result = finish(make().start(15.0));
        EXPECT_EQ(result.mode, Mode::failed);
        EXPECT_EQ(result.lastError, row.words);
        EXPECT_TRUE(launcher->commands.empty());
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

    child().tellEnd(1); // an exit like any other
    loop.drain();
    EXPECT_EQ(status().mode, Mode::starting);
    EXPECT_EQ(status().childPid, std::nullopt);
}

TEST_F(DaemonSupervisorTest, aChildThatNeverAnswersIsEndedFirstGentlyThenForcibly) {
    launcher->onLaunch = [](ScriptedChild& child) {
        child.endsWhenTold = false;
        child.say("kelvadromed: Port 4000 is in use.\n");
    };
    const auto result = finish(make().start(0.3));
    EXPECT_EQ(result.lastError, "kelvadromed did not answer within 0 s. Port 4000 is in use.");
    EXPECT_EQ(result.childPid, std::nullopt);
    EXPECT_THAT(child().asked, ElementsAre("terminate", "kill", "close input"));
    EXPECT_EQ(pauses.size(), 2U + 30U);
    EXPECT_NEAR(pauses.back(), 0.1, 1e-6);
}

TEST(DaemonLog, theReasonIsTheLineThatNamesItCleanedForAnyScreen) {
    const struct {
        std::vector<std::string> lines;
        const char* reason;
    } rows[] = {{{}, ""}, {{"first", "kelvadromed: The port is taken."}, "kelvadromed: The port is taken."},
        {{"node:internal/loader:12", "  throw err;", "  ^", "", "Error: Cannot find module '/x'",
             "Require stack:", "- /y", "    at load (node:1:2) {", "  code: 'X'", "}", "Node.js v24.1.0"},
            "Error: Cannot find module '/x'"},
        {{"kelvadromed: TypeError: no", "    at f (a.mjs:1:1)"}, "kelvadromed: TypeError: no"},
        {{"\x1b[31mbad\x1b[0m\x07 \u202Eline\r"}, "bad line"},
        {{"at /home/u/a-folder-with-a-rather-long-name-2026: token=abc 0123456789abcdef0123456789abcdef "
          "kX3fq9ZLmT2vWc8RbYh4Nd7GpSj1Ae6u"},
            "at /home/u/a-folder-with-a-rather-long-name-2026: token=… … …"}};
    for (const auto& row : rows)
        EXPECT_EQ(DaemonLog::reason(row.lines), row.reason);
}

TEST_F(DaemonSupervisorTest, theLoginItemsDaemonIsWaitedForAndNoChildIsStarted) {
    auto& it = make();
    loop.run(it.setLaunchdOwned(true));
    onPause = [this](std::size_t number) {
        if (number == 2)
            answer();
    };
    EXPECT_EQ(finish(it.start(15.0)), DaemonSupervisor::Status{.mode = Mode::attached});

    fallSilent();
    onPause = nullptr;
    const auto late = finish(it.start(15.0));
    EXPECT_EQ(late.mode, Mode::starting);
    EXPECT_TRUE(late.lastError.value_or("").ends_with("Background shows its state.")) << *late.lastError;
    EXPECT_EQ(pauses.size(), 60U);

    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(finish(it.recover()).mode, Mode::starting) << "never given up";
    answer();
    EXPECT_EQ(finish(it.recover()).mode, Mode::attached);
    EXPECT_TRUE(launcher->commands.empty());
}

TEST_F(DaemonSupervisorTest, whatTheLoginItemsDaemonSaidSinceItAnsweredIsItsReason) {
    const auto log = [&](std::ios::openmode how, const std::string& text) {
        std::ofstream(folder / "err.log", how) << text;
    };
    log(std::ios::out, "kelvadromed: An older fault, which is mended.\n");
    loop.run(make().setLaunchdOwned(true));
    const std::string restarting = "The background service is restarting.";
    onPause = [&](std::size_t number) {
        if (number == 3)
            log(std::ios::app, "kelvadromed: Port 4000 is in use.\n");
    };
    EXPECT_TRUE(
        finish(supervisor->start(15.0)).lastError->ends_with("shows its state. Port 4000 is in use."));
    EXPECT_EQ(finish(supervisor->recover()).lastError, restarting + " Port 4000 is in use.");
    answer();
    finish(supervisor->recover());
    fallSilent();
    EXPECT_EQ(finish(supervisor->recover()).lastError, restarting) << "it has answered since";
    log(std::ios::out, "short\n"); // the log has made room, and is shorter than before
    EXPECT_EQ(finish(supervisor->recover()).lastError, restarting + " short");
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

TEST_F(DaemonSupervisorTest, cancellationEndsTheWaitForAChildAndTheChild) {
    auto& it = make();
    const auto run = begin(it.start(15.0));
    untilPause();
    run->handle.cancel();
    loop.until([&] { return !child().asked.empty(); }, "the child to be ended");
    loop.drain();
    clock->advance(0.1);
    loop.drain();
    EXPECT_THAT(child().asked, ElementsAre("terminate", "close input"));
    EXPECT_EQ(status().mode, Mode::failed);
    EXPECT_EQ(status().childPid, std::nullopt);
}

TEST_F(DaemonSupervisorTest, restartsBackOffAndGiveUpAfterFiveInTwoMinutes) {
    spawnHealthy();
    child().say("said by an earlier child\n");
    std::vector<double> backOffs;
    for (std::size_t round = 0; round < 5; ++round) {
        fallSilent();
        child(round).tellEnd(9);
        loop.drain();
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
    answer();
    EXPECT_EQ(finish(supervisor->recover()).mode, Mode::attached);

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
    for (int check = 0; check < 2; ++check)
        EXPECT_EQ(finish(supervisor->recover()).lastError, std::nullopt);
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

} // namespace
} // namespace kelvadrome::test
