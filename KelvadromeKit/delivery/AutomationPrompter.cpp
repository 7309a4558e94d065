#include "KelvadromeKit/delivery/AutomationPrompter.h"

#include <boost/asio/strand.hpp>

namespace kelvadrome {

AutomationPrompter::AutomationPrompter(
    Executor executor, AutomationProbe probe, std::shared_ptr<FlagStore> flags)
    : strand_(asio::make_strand(executor)), probe_(std::move(probe)), flags_(std::move(flags)) {}

Task<AutomationStatus> AutomationPrompter::status(TerminalApp app) {
    return runOn(strand_, statusOn(shared_from_this(), app));
}

Task<AutomationPrompter::RequestResult> AutomationPrompter::request(TerminalApp app) {
    return runOn(strand_, requestOn(shared_from_this(), app));
}

Task<std::optional<AutomationStatus>> AutomationPrompter::autoRequestIfNeeded(
    TerminalApp app, bool agentSessionRunning) {
    return runOn(strand_, autoRequestOn(shared_from_this(), app, agentSessionRunning));
}

std::string AutomationPrompter::autoKey(TerminalApp app) {
    return "KDAutomationAutoAsked." + std::string(rawValue(app));
}

Task<AutomationStatus> AutomationPrompter::statusOn(Self self, TerminalApp app) {
    co_return automationStatusFrom(self->probe_.check(std::string(bundleId(app))));
}

Task<AutomationPrompter::RequestResult> AutomationPrompter::requestOn(Self self, TerminalApp app) {
    using Kind = RequestResult::Kind;
    if (self->probe_.screenLocked())
        co_return RequestResult{Kind::screenLocked};
    const std::string bundle(bundleId(app));
    const auto status = automationStatusFrom(self->probe_.check(bundle));
    if (status == AutomationStatus::granted || status == AutomationStatus::denied) {
        co_return RequestResult{Kind::status, status};
    }
    if (self->inFlight_.contains(bundle))
        co_return RequestResult{Kind::alreadyAsking};
    const auto answer = co_await ask(self, bundle);
    co_return RequestResult{Kind::status, answer};
}

Task<std::optional<AutomationStatus>> AutomationPrompter::autoRequestOn(
    Self self, TerminalApp app, bool agentRunning) {
    const std::string bundle(bundleId(app));
    if (!agentRunning || self->flags_->isSet(autoKey(app)) || self->inFlight_.contains(bundle)) {
        co_return std::nullopt;
    }
    if (self->probe_.screenLocked())
        co_return std::nullopt;
    const auto status = automationStatusFrom(self->probe_.check(bundle));
    if (status != AutomationStatus::notDetermined)
        co_return std::nullopt;
    // Before the question shows: a user who ignores it isn't asked again.
    self->flags_->set(autoKey(app));
    const auto answer = co_await ask(self, bundle);
    co_return answer;
}

/// Shows the question. While it is open, other calls run and find the bundle id in flight.
Task<AutomationStatus> AutomationPrompter::ask(Self self, std::string bundle) {
    struct InFlight {
        AutomationPrompter& prompter;
        const std::string& bundle;
        InFlight(AutomationPrompter& p, const std::string& b) : prompter(p), bundle(b) {
            prompter.inFlight_.insert(bundle);
        }
        ~InFlight() { prompter.inFlight_.erase(bundle); }
        InFlight(const InFlight&) = delete;
        InFlight& operator=(const InFlight&) = delete;
    };
    const InFlight open(*self, bundle);
    auto question = self->probe_.request(bundle);
    const auto code = co_await std::move(question);
    co_return automationStatusFrom(code);
}

} // namespace kelvadrome
