#include "Kelvadrome/model/AppLifecycle.h"

#include "KelvadromeKit/onboarding/FirstRun.h"
#include "KelvadromeKit/support/Text.h"

#include <charconv>

namespace kelvadrome {

namespace {

constexpr double statusLimit = 2; // seconds that a quit waits for the daemon
constexpr double largestSide = 16384;

std::optional<double> number(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && value >= 1 && value <= largestSide ? std::optional(value) : std::nullopt;
}

} // namespace

Task<bool> AppLifecycle::mayTerminate() {
    auto prompt = co_await quitPrompt();
    if (!prompt)
        co_return true;
    QuitQuestion question{std::move(*prompt),
        "The install stops with kelvadrome and shows as interrupted at the next start.", "Quit",
        "Keep running"};
    const bool quits = co_await ask_(std::move(question));
    co_return quits;
}

Task<bool> AppLifecycle::shouldTerminate() {
    if (stopped_)
        co_return true;
    const bool may = co_await mayTerminate();
    if (!may)
        co_return false;
    co_await model_->stop();
    stopped_ = true;
    co_return true;
}

/// A daemon that isn't our child goes on when we go, and so does what it installs.
Task<std::optional<std::string>> AppLifecycle::quitPrompt() const {
    const auto& state = model_->state();
    const bool attached =
        state.supervisorStatus && state.supervisorStatus->mode == DaemonSupervisor::Mode::attached;
    if (!state.onboardingActive || attached)
        co_return std::nullopt;
    auto status = co_await attempt(client_.onboardingStatus(statusLimit));
    if (!status)
        co_return std::nullopt;
    co_return FirstRun::quitPrompt(status->installingNames());
}

bool AppLifecycle::showsInDock(const Defaults& defaults) {
    return defaults.storedBoolean("KDShowInDock").value_or(true);
}

std::optional<std::pair<int, int>> AppLifecycle::windowSize(std::string_view text) {
    const auto pieces = Text::split(text, 'x');
    if (pieces.size() != 2)
        return std::nullopt;
    const auto width = number(pieces[0]);
    const auto height = number(pieces[1]);
    if (!width || !height)
        return std::nullopt;
    return std::pair(static_cast<int>(*width), static_cast<int>(*height));
}

} // namespace kelvadrome
