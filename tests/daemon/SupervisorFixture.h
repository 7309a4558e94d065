#pragma once

#include "KelvadromeKit/daemon/DaemonSupervisor.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/Paced.h"
#include "tests/support/ScriptedLauncher.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace kelvadrome::test {

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

} // namespace kelvadrome::test
