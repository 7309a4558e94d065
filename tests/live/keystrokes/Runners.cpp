#include "tests/live/keystrokes/Runners.h"

#include "Kelvadrome/platform/linux/process/DeliveryRunners.h"

#include <algorithm>

namespace kelvadrome::test {

namespace {

bool types(std::string_view words) {
    return words.find("send-keys") != std::string_view::npos;
}

/// The same input, with a word before it goes to the child.
std::shared_ptr<const LateInput> told(std::shared_ptr<const LateInput> input, Watched::BeforeKey beforeKey) {
    const auto wrapped = [input, beforeKey = std::move(beforeKey)] {
        const auto began = std::chrono::steady_clock::now();
        auto text = input->give();
        if (text && types(*text))
            beforeKey(began);
        return text;
    };
    return std::make_shared<const LateInput>(LateInput{input->ready, wrapped});
}

} // namespace

Task<RunOutput> Watched::run(RunCommand command, double timeout) {
    if (command.input)
        command.input = told(std::move(command.input), beforeKey_);
    else if (std::ranges::any_of(command.args, types))
        beforeKey_(std::chrono::steady_clock::now());
    auto running = inner_->run(std::move(command), timeout);
    co_return co_await std::move(running);
}

std::shared_ptr<CommandRunning> runnerFor(const DeliverJob& job, const Stage& stage, BackgroundPool& pool,
    std::shared_ptr<Clock> clock, Watched::BeforeKey asked, Watched::BeforeKey sent) {
    auto real = std::make_shared<ProcessRunner>(pool, stage.environment());
    auto inner = std::make_shared<Watched>(std::move(real), std::move(sent));
    const DeliveryRunners runners(pool, stage.environment(), std::move(clock), std::move(inner));
    return std::make_shared<Watched>(runners.forJob(job), std::move(asked));
}

} // namespace kelvadrome::test
