#pragma once

#include "KelvadromeKit/daemon/DaemonSupervisor.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/ScriptedLauncher.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

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

} // namespace kelvadrome::test
