#include "Kelvadrome/model/AppModel.h"

#include "KelvadromeKit/onboarding/FirstRun.h"

namespace kelvadrome {

namespace {

constexpr double startTimeout = 15.0;
constexpr double pollPause = 5.0;
constexpr double streamPause = 2.0;
constexpr double silenceLimit = 20.0; // without a refresh for longer than this, the poll does one

Task<> setUpNotifications(
    std::shared_ptr<Notifying> notifier, bool enabled, std::function<void(bool)> report) {
    co_await notifier->setUp(enabled, std::move(report));
}

} // namespace

std::shared_ptr<AppModel> AppModel::make(Dependencies dependencies) {
    struct Model final : AppModel {
        explicit Model(Dependencies d) : AppModel(std::move(d)) {}
    };
    return std::make_shared<Model>(std::move(dependencies));
}

AppModel::AppModel(Dependencies dependencies)
    : parts_(std::move(dependencies)), changes_(parts_.executor), tasks_(parts_.executor) {
    state_.appearance = parts_.flags.appearance.value_or("system");
    state_.section = parts_.flags.section.value_or(NavSection::inbox);
    const auto scope = parts_.defaults->string("KDScopeFilter");
    if (scope)
        state_.scope = scopeFilterFromRawValue(*scope).value_or(ScopeFilter::all);
    state_.interfaceMode = loadInterfaceMode(*parts_.defaults);
    parts_.web->mode = state_.interfaceMode;
    state_.inspectorShown = parts_.flags.inspector && !hidesNativeChrome(state_.interfaceMode);
    state_.agentStripShown = parts_.defaults->boolean("KDAgentStrip");
    state_.nativeInbox = parts_.defaults->boolean("KDNativeInbox");
}

void AppModel::start() {
    if (liveTask_)
        return;
    if (parts_.flags.appearance)
        applyAppearance();
    auto report = [weak = weak_from_this()](bool allowed) {
        if (const auto self = weak.lock())
            self->set(&AppState::notificationsAllowed, allowed);
    };
    launch(
        "notifications", setUpNotifications(parts_.notifier, parts_.flags.notifications, std::move(report)));
    liveTask_ = tasks_.launch("live", live(weak_from_this()));
}

Task<> AppModel::stop() {
    const auto self = shared_from_this();
    if (parts_.finishDelivery) // first: a report needs the daemon
        co_await parts_.finishDelivery();
    if (parts_.voice)
        co_await parts_.voice->finish();
    if (parts_.relay)
        parts_.relay->stop();
    liveTask_.cancel();
    pollTask_.cancel();
    tasks_.close();
    for (const auto& [notification, stops] : std::exchange(posted_, {}))
        parts_.notifier->withdraw(notification); // a press on it would open nothing any more
    co_await parts_.supervisor->stop();
}

Task<> AppModel::live(std::weak_ptr<AppModel> weak) {
    if (const auto self = weak.lock())
        co_await self->bringUp();
    co_await streamLoop(weak);
}

Task<> AppModel::bringUp() {
    co_await prepareBackground();
    const bool up = co_await startSupervisor();
    if (up && parts_.relay)
        co_await parts_.relay->startIfEnabled();
    co_await decideFirstRun();
    if (parts_.voice)
        co_await parts_.voice->refresh(false);
    if (tasks_.closed())
        co_return;
    if (parts_.flags.openBar)
        parts_.screen->openCommandBar(parts_.flags.barText);
    pollTask_ = tasks_.launch("poll", pollLoop(weak_from_this(), parts_.clock));
    if (parts_.startDelivery)
        parts_.startDelivery();
}

/// The login item first, so that its daemon is never doubled by a child.
Task<> AppModel::prepareBackground() {
    if (!parts_.background)
        co_return;
    const auto prepare = [background = *parts_.background, defaults = parts_.defaults] {
        return background.prepareAtLaunch(*defaults);
    };
    auto prepared = co_await parts_.pool->run(prepare);
    set(&AppState::backgroundState, std::move(prepared));
    co_await parts_.supervisor->setLaunchdOwned(loginItemIsEnabled(state_));
}

/// Brings the daemon up and connects to it; false when supervision failed.
Task<bool> AppModel::startSupervisor() {
    const auto status = co_await parts_.supervisor->start(startTimeout);
    if (tasks_.closed())
        co_return false; // a start that a quit cut short has not failed
    set(&AppState::supervisorStatus, status);
    if (status.mode == DaemonSupervisor::Mode::failed) {
        set(&AppState::connection,
            Connection::failed(status.lastError.value_or("kelvadromed did not start.")));
        co_return false;
    }
    co_await connect();
    co_return true;
}

void AppModel::retry() {
    launch("retry", retryNow());
}

Task<> AppModel::retryNow() {
    const auto self = shared_from_this();
    if (parts_.background && loginItemIsEnabled(state_))
        co_await relieveLoginItem();
    co_await startSupervisor();
}

/// A login item that is down, or whose manager doesn't answer, would be waited for in vain, so the daemon is
/// started here. One that runs and yet doesn't answer is started again.
Task<> AppModel::relieveLoginItem() {
    const auto self = shared_from_this();
    const auto health = co_await attempt(parts_.client.health(healthTimeout));
    if (health)
        co_return;
    const auto restart = [background = *parts_.background] {
        const bool runs = background.service->isRunning();
        if (runs)
            background.kickstart();
        return runs;
    };
    const bool runs = co_await parts_.pool->run(restart);
    co_await parts_.supervisor->setLaunchdOwned(runs);
}

/// A daemon that can't tell opens the main window: setup never blocks the application.
Task<> AppModel::decideFirstRun() {
    if (std::exchange(firstRunDecided_, true))
        co_return;
    std::optional<OnboardingStatus> answer;
    for (int pass = 0; pass < 3 && !answer; ++pass) {
        if (state_.connection.state != Connection::State::ready)
            continue;
        if (pass > 0)
            co_await parts_.clock->sleep(1.0);
        auto status = co_await attempt(parts_.client.onboardingStatus(10.0));
        if (status)
            answer = std::move(*status);
    }
    if (tasks_.closed())
        co_return;
    const auto completed = answer ? answer->completed : std::nullopt;
    if (FirstRun::decide(completed, parts_.flags.onboarding) == FirstRun::Decision::main) {
        openMainWindow();
    } else {
        parts_.screen->orderOutMain();
        openOnboarding(true);
    }
}

/// The loss of the stream is silent: the poll covers the gap.
Task<> AppModel::streamLoop(std::weak_ptr<AppModel> weak) {
    while (true) {
        auto self = weak.lock();
        if (!self)
            co_return;
        const auto transport = self->parts_.client.transport;
        const auto clock = self->parts_.clock;
        SSEParser::OnEvent onEvent = [weak, executor = self->parts_.executor](const auto& event) {
            if (event.event == "ping")
                return;
            asio::post(executor, [weak] {
                if (const auto model = weak.lock())
                    model->scheduleRefresh();
            });
        };
        self.reset();
        auto stream = transport.stream("/v1/stream", std::move(onEvent));
        co_await attempt(std::move(stream));
        co_await clock->sleep(streamPause);
    }
}

Task<> AppModel::pollLoop(std::weak_ptr<AppModel> weak, std::shared_ptr<Clock> clock) {
    while (true) {
        co_await clock->sleep(pollPause);
        const auto self = weak.lock();
        if (!self)
            co_return;
        co_await self->poll();
    }
}

Task<> AppModel::poll() {
    auto health = co_await attempt(parts_.client.health(healthTimeout));
    if (tasks_.closed())
        co_return;
    if (health) {
        co_await pollHealthy(std::move(*health));
    } else {
        co_await pollFailed();
    }
    set(&AppState::supervisorStatus, co_await parts_.supervisor->currentStatus());
}

Task<> AppModel::pollHealthy(Health health) {
    if (lastPid_ && *lastPid_ != health.pid) { // another daemon than the one that knew our session
        lastPid_ = health.pid;
        // Its page may be on another port, where the held session would never even be refused.
        co_await parts_.session->reset();
        co_await connect();
    }
    lastPid_ = health.pid;
    set(&AppState::health, std::move(health));
    // Also after a mere pause of the same daemon, and after a login item that came up late: nothing else
    // would ever end the state `starting`.
    if (state_.connection.state != Connection::State::ready) {
        co_await connect();
    } else if ((parts_.clock->now() - state_.lastRefresh.value_or(distantPast)).count() > silenceLimit) {
        co_await refresh();
    }
}

Task<> AppModel::pollFailed() {
    set(&AppState::connection, Connection::starting());
    const auto status = co_await parts_.supervisor->recover();
    if (tasks_.closed())
        co_return;
    set(&AppState::supervisorStatus, status);
    if (status.mode == DaemonSupervisor::Mode::failed) {
        set(&AppState::connection, Connection::failed(status.lastError.value_or("kelvadromed stopped.")));
    }
}

void AppModel::setBackground(bool on) {
    if (!parts_.background || state_.backgroundChanging)
        return;
    // At once, so that the switch stays where it was put.
    set(&AppState::backgroundChanging, std::optional(on));
    launch("login item", changeBackground(on));
}

Task<> AppModel::changeBackground(bool on) {
    const auto self = shared_from_this();
    ++backgroundChanges_;
    const auto change = [background = *parts_.background, defaults = parts_.defaults, on] {
        return background.set(on, *defaults);
    };
    auto changed = co_await parts_.pool->run(change);
    ++backgroundChanges_;
    set(&AppState::backgroundState, std::move(changed));
    co_await handOver();
    set(&AppState::backgroundChanging, std::nullopt);
}

void AppModel::refreshBackground() {
    if (parts_.background)
        launch("login item", readBackground());
}

Task<> AppModel::readBackground() {
    const auto self = shared_from_this();
    const auto changes = backgroundChanges_;
    const auto read = [background = *parts_.background, defaults = parts_.defaults] {
        return background.current(*defaults);
    };
    auto current = co_await parts_.pool->run(read);
    // What a change tells is newer.
    if (changes != backgroundChanges_ || state_.backgroundChanging)
        co_return;
    const auto& known = state_.backgroundState;
    const bool statusChanged = !known || known->status != current.status;
    if (known) {
        current.migratedTo = known->migratedTo;
        current.error = known->error;
    }
    set(&AppState::backgroundState, std::move(current));
    if (statusChanged)
        co_await handOver();
}

/// A child daemon makes way for the login item's.
Task<> AppModel::handOver() {
    const auto self = shared_from_this();
    const bool owned = loginItemIsEnabled(state_);
    co_await parts_.supervisor->setLaunchdOwned(owned);
    if (!owned)
        co_return;
    const auto status = co_await parts_.supervisor->currentStatus();
    if (status.mode != DaemonSupervisor::Mode::spawned)
        co_return;
    co_await parts_.supervisor->stop();
    const auto kickstart = [background = *parts_.background] { background.kickstart(); };
    co_await parts_.pool->run(kickstart);
    set(&AppState::supervisorStatus, co_await parts_.supervisor->start(startTimeout));
}

} // namespace kelvadrome
