#include "KelvadromeKit/delivery/DeliverCheck.h"
#include "KelvadromeKit/delivery/LiveExecutor.h"

namespace kelvadrome {

namespace {

constexpr double readLimit = 5.0; // seconds, as all times here
constexpr double pauseAfterReturn = 0.9;
constexpr double pauseAfterMove = 0.3;
constexpr int attempts = 4;

bool canAnswer(const DeliverJob& job) {
    if (!job.screen || !job.screen->want || !job.screen->folder)
        return false;
    const bool known = *job.screen->want == "trust" || *job.screen->want == "exit";
    return known && (job.host == "tmux" || job.host == "iterm2");
}

} // namespace

Task<std::optional<TrustScreen::Match>> LiveExecutor::trustScreen(DeliverJob job) const {
    const auto screen = co_await readScreen(std::move(job));
    co_return screen.question;
}

Task<LiveExecutor::Screen> LiveExecutor::readScreen(DeliverJob job) const {
    Screen screen;
    auto read = HostPlan::screenRead(job, bins);
    if (!read)
        co_return screen;
    const auto output = co_await runner->run(std::move(*read), readLimit);
    screen.refusal = output.refusal;
    if (output.succeeded())
        screen.question = TrustScreen::match(output.stdoutText, job.screen->folder, home);
    co_return screen;
}

Task<JobOutcome> LiveExecutor::trustAnswer(DeliverJob job, Start start, std::function<WallTime()> now) const {
    if (!canAnswer(job))
        co_return JobOutcome::refused("bad key");
    const auto screen = co_await readScreen(job);
    if (!screen.question)
        co_return JobOutcome::refused(screen.refusal.value_or("the folder question is no longer on screen"));
    auto stop = co_await start();
    if (stop)
        co_return JobOutcome::refused(std::move(*stop));

    for (int i = 0; i < attempts; ++i) {
        auto pressed = co_await pressNext(job, i == 0, now);
        if (pressed.end)
            co_return std::move(*pressed.end);
        const bool entered = pressed.key == "enter";
        co_await pauseAfterKey(entered ? pauseAfterReturn : pauseAfterMove, pressed.secondsSince);
        if (entered)
            co_return co_await afterReturn(std::move(job));
    }
    co_return JobOutcome::failed("the selection did not move");
}

/// Looks at the process and the screen and presses the one key that they call for. The key, or how the job
/// ends.
Task<LiveExecutor::Pressed> LiveExecutor::pressNext(
    DeliverJob job, bool first, std::function<WallTime()> now) const {
    const auto ended = [first](std::string reason) {
        return Pressed{
            first ? JobOutcome::refused(std::move(reason)) : JobOutcome::failed(std::move(reason))};
    };
    const auto found = co_await facts(job.pid);
    if (const auto refusal = DeliverCheck::refusal(job, found, {job.presence}, now()))
        co_return ended("before the key: " + *refusal);
    const auto screen = co_await readScreen(job);
    if (!screen.question)
        co_return ended(screen.refusal.value_or("the folder question left the screen"));

    const std::string key(screen.question->keyTowards(*job.screen->want));
    auto command = HostPlan::navKey(job, key, bins);
    if (!command)
        co_return Pressed{JobOutcome::refused(job.host + " cannot press this key")};
    auto given = co_await give(std::move(*command), keyLimit, "the terminal did not take the key", first);
    co_return Pressed{std::move(given.end), key, given.secondsSince};
}

Task<JobOutcome> LiveExecutor::afterReturn(DeliverJob job) const {
    const auto still = co_await trustScreen(job);
    if (still)
        co_return JobOutcome::failed("the folder question did not take Return");
    if (job.screen->want != "trust")
        co_return JobOutcome::done();
    const auto found = co_await facts(job.pid);
    if (found && found->pid == job.pid && found->tty == job.tty && found->isAgent("claude"))
        co_return JobOutcome::done();
    co_return JobOutcome::failed("Claude left after Return");
}

} // namespace kelvadrome
