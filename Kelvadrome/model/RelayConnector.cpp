#include "Kelvadrome/model/RelayConnector.h"

#include "KelvadromeKit/relay/RelayStatus.h"
#include "KelvadromeKit/support/Log.h"

#include <algorithm>
#include <cmath>
#include <system_error>

namespace kelvadrome {

namespace {

constexpr const char* missing = "The relay connector is missing from this build.";
constexpr const char* notStarted = "The relay connector did not start.";

/// Seconds until the next start after so many ends: 2, 4, 8, 16, 30, 30 and so on.
double pauseAfter(std::int64_t restarts) {
    return std::min(std::pow(2.0, static_cast<double>(std::min<std::int64_t>(restarts, 5))), 30.0);
}

} // namespace

std::shared_ptr<RelayConnector> RelayConnector::make(Dependencies dependencies) {
    struct Connector final : RelayConnector {
        explicit Connector(Dependencies d) : RelayConnector(std::move(d)) {}
    };
    return std::make_shared<Connector>(std::move(dependencies));
}

Task<> RelayConnector::startIfEnabled() {
    const auto self = shared_from_this();
    const auto question = ++asked_;
    auto status = co_await attempt(RelayCalls::status(parts_.client));
    if (!status || question <= settled_)
        co_return;
    settled_ = question;
    wanted_ = status->enabled;
    if (wanted_) {
        start();
    } else {
        stop();
    }
}

void RelayConnector::start() {
    if (process_ && process_->isRunning())
        return;
    if (auto wish = plan()) {
        launch(std::move(*wish));
    } else {
        lastError_ = missing;
    }
}

std::optional<RelayConnectorPlan> RelayConnector::plan() const {
    const auto path = parts_.environment.find("PATH");
    auto node = parts_.env.findNode(
        path != parts_.environment.end() ? std::optional(path->second) : std::nullopt, parts_.isExecutable);
    if (!node)
        return std::nullopt;
    return RelayConnectorPlan::make(parts_.env, std::move(*node), parts_.environment, parts_.exists);
}

void RelayConnector::launch(RelayConnectorPlan plan) {
    const auto number = ++launch_;
    auto exited = [executor = parts_.executor, weak = weak_from_this(), number](std::int32_t) {
        asio::post(executor, [weak, number] {
            if (const auto self = weak.lock())
                self->ended(number);
        });
    };
    try {
        process_ = parts_.launcher->launch({.executable = std::move(plan.node),
                                               .arguments = std::move(plan.arguments),
                                               .environment = std::move(plan.environment),
                                               .currentDirectory = parts_.env.home,
                                               .silent = true},
            {.output = {}, .exited = std::move(exited)});
        lastError_.reset();
    } catch (const std::system_error& error) {
        logLine(std::string("relay connector: ") + error.what());
        lastError_ = notStarted;
    }
}

void RelayConnector::ended(std::uint64_t launch) {
    if (launch != launch_)
        return; // one that was stopped, or a newer one runs
    process_.reset();
    if (!wanted_)
        return;
    restarts_ += 1;
    pause_ = spawn(parts_.executor, "relay connector",
        startAfter(weak_from_this(), parts_.clock, pauseAfter(restarts_), launch));
}

Task<> RelayConnector::startAfter(
    std::weak_ptr<RelayConnector> weak, std::shared_ptr<Clock> clock, double pause, std::uint64_t launch) {
    co_await attempt(clock->sleep(pause)); // cut short, it goes on the same way
    const auto self = weak.lock();
    if (self && self->wanted_ && launch == self->launch_)
        self->start();
}

void RelayConnector::stop() {
    if (process_)
        process_->terminate();
    process_.reset();
    restarts_ = 0;
    // Neither its end, nor a pause, nor an answer of the daemon that is still on its way starts another.
    ++launch_;
    settled_ = asked_;
    pause_.cancel();
}

} // namespace kelvadrome
