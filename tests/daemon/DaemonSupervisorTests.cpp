#include "tests/daemon/SupervisorFixture.h"

#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <future>
#include <sys/stat.h>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;

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
    std::vector<Row> rows = {
        {"an old Node", [&] { launcher->version = "v22.12.0\n"; },
            "Node v22.12.0 is too old. kelvadrome needs Node 22.13 or later."},
        {"no launcher", [&] { fs::remove(folder / "res/kelvadrome/kelvadromed-app.mjs"); },
            "The bundled daemon is missing. Rebuild the app with scripts/macos/build.sh."},
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
    EXPECT_TRUE(late.lastError);
    EXPECT_EQ(pauses.size(), 60U);

    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(finish(it.recover()).mode, Mode::starting) << "never given up";
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

TEST_F(DaemonSupervisorTest, theLogTailKeepsTheLastFortyLinesOfThreeHundredCharacters) {
    spawnHealthy();
    std::string words, wide;
    for (int i = 1; i <= 41; ++i)
        words += fmt::format("line {}\n\n", i);
    for (int i = 0; i < 301; ++i)
        wide += "é";
    child().say(words);
    child().say(wide + "\nbad \xff byte");
    loop.drain();
    const auto tail = status().logTail;
    ASSERT_EQ(tail.size(), 40U);
    EXPECT_EQ(tail.front(), "line 4");
    EXPECT_EQ(tail[37], "line 41");
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
