#pragma once

#include "Kelvadrome/model/AppModel.h"

#include "tests/model/Cards.h"
#include "tests/support/FakeDaemon.h"
#include "tests/support/FakeFrontEnd.h"
#include "tests/support/FakePage.h"
#include "tests/support/ScriptedLauncher.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome::test {

/// The connector and the voice, as far as the model calls them.
class RecordingParts final : public RelayConnecting, public VoiceControlling {
public:
    explicit RecordingParts(CallLog& calls) : calls_(calls) {}
    Task<> startIfEnabled() override {
        calls_.add("relay start");
        co_return;
    }
    void stop() override { calls_.add("relay stop"); }
    std::optional<std::string> lastError() const override { return std::nullopt; }
    Task<> refresh(bool force) override {
        calls_.add(force ? "voice refresh forced" : "voice refresh");
        co_return;
    }
    Task<> pageAction(std::string action) override {
        calls_.add("voice " + action);
        co_return;
    }
    Task<> finish() override { co_return; }

private:
    CallLog& calls_;
};

/// A model with a daemon on a real socket, a page port without one, a screen that remembers, and time that
/// moves only when told. Change what the fields say, then `make`.
class World {
public:
    World() {
        daemon.emplace(socketPath);
        serve();
    }
    ~World() { clock->letGo(); }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// The daemon's replies, from the fields below.
    void serve() {
        daemon->on("/v1/health", [this](const FakeRequest&) {
            return FakeReply::data(fmt::format(R"({{"pid":{},"home":"/h"}})", pid.load()));
        });
        reply("/v1/board", R"({"topics":[]})");
        reply("/v1/receipts/list", R"({"receipts":[]})");
        reply("/v1/onboarding/status", R"({"completed":true})");
        reply("/v1/agents/status", "{}");
        reply("/v1/inbox", "{}");
        cards({});
        stream = std::make_shared<FakeStream>();
        daemon->on("/v1/stream", FakeReply::events(stream));
    }

    AppModel& make() {
        const DaemonEnvironment env(folder.path().string(), std::nullopt, resources);
        const DaemonClient client(UnixSocketTransport(socketPath, loop.pool()));
        page = std::make_shared<FakePage>();
        page->refuseLogin = refuseLogin;
        AppModel::Dependencies d{.executor = loop.executor(),
            .pool = &loop.pool(),
            .clock = clock,
            .defaults = defaults,
            .flags = flags,
            .env = env,
            .supervisor = std::make_shared<DaemonSupervisor>(env, client,
                DaemonSupervisor::World{loop.executor(), &loop.pool(), clock, launcher}, EnvironmentMap{}),
            .client = client,
            .session = std::make_shared<PageSession>(loop.executor(), page, FakePage::mint),
            .background = background,
            .web = web,
            .screen = screen,
            .notifier = notifier,
            .automation =
                std::make_shared<AutomationPrompter>(loop.executor(), probe, std::make_shared<MemoryFlags>()),
            .relay = std::make_shared<RecordingParts>(calls),
            .voice = std::make_shared<RecordingParts>(calls),
            .startDelivery = [this] { calls.add("delivery"); }};
        model = AppModel::make(std::move(d));
        return *model;
    }

    const AppState& state() const { return model->state(); }

    /// Starts the model and runs until only the poll sleeps.
    void start() {
        if (!model)
            make();
        model->start();
        idle();
    }

    /// Runs until the one sleeper is the poll, at the beginning of its pause.
    void idle() {
        loop.until([&] { return clock->sleepers() == 1 && std::abs(clock->untilNext() - 5.0) < 1e-6; },
            "the poll to begin its pause");
        loop.until([&] { return !streamWanted || stream->opened(); }, "the event stream to be open");
    }

    /// One round of the poll.
    void poll() {
        clock->advance(5.0);
        idle();
    }

    void refresh() { loop.run(model->refresh()); }

    /// Turns the clock by each pause as it comes, those above `longest` seconds excepted.
    void turnUntil(const std::function<bool()>& condition, const std::string& what, double longest = 60) {
        loop.until(
            [&] {
                const bool holds = condition();
                const auto next = clock->untilNext();
                if (!holds && next > 0 && next <= longest)
                    clock->advance(next);
                return holds;
            },
            what);
    }

    std::size_t asked(const std::string& path) const { return daemon->requests(path).size(); }

    static std::string cardJSON(const std::string& id, const std::string& kind = "question",
        const std::string& risk = "low", const std::string& more = "") {
        return fmt::format(
            R"({{"id":"{}","version":3,"kind":"{}","risk":"{}","title":"{}","opened_at":"2027-01-15T08:00:00Z"{}}})",
            id, kind, risk, id, more);
    }
    /// From here on the daemon answers so; until the next `refresh` nobody has read it.
    void cards(const std::vector<std::string>& json) {
        reply("/v1/cards/list", fmt::format(R"({{"cards":[{}]}})", fmt::join(json, ",")));
    }
    void reply(const std::string& path, const std::string& json) { daemon->on(path, FakeReply::data(json)); }
    void refuse(const std::string& path) { daemon->on(path, FakeReply::failure("internal", "no")); }
    void readCards(const std::vector<std::string>& json) {
        cards(json);
        refresh();
    }
    void until(const std::function<bool()>& condition, const std::string& what) {
        loop.until(condition, what);
    }

    TestLoop loop;
    TemporaryFolder folder;
    const std::string socketPath = folder / "kelvadromed.sock";
    std::optional<FakeDaemon> daemon;
    std::atomic<int> pid = 100;
    std::shared_ptr<FakeStream> stream;
    bool streamWanted = true;
    bool refuseLogin = false;
    DebugFlags flags;
    std::optional<std::string> resources;
    std::shared_ptr<ScriptedLauncher> launcher = std::make_shared<ScriptedLauncher>();
    std::optional<BackgroundService> background;
    AutomationProbe probe;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<MemoryDefaults> defaults = std::make_shared<MemoryDefaults>();
    std::shared_ptr<FakePage> page;
    std::shared_ptr<RecordingScreen> screen = std::make_shared<RecordingScreen>();
    std::shared_ptr<RecordingWeb> web = std::make_shared<RecordingWeb>();
    std::shared_ptr<RecordingNotifier> notifier = std::make_shared<RecordingNotifier>();
    CallLog calls;
    std::shared_ptr<AppModel> model;
};

} // namespace kelvadrome::test
