#include "KelvadromeKit/delivery/BoundedRunner.h"

namespace kelvadrome {

Task<RunOutput> BoundedRunner::run(RunCommand command, double timeout) {
    using namespace asio::experimental::awaitable_operators;
    auto work = inner_->run(std::move(command), timeout);
    auto limit = clock_->sleep(timeout + grace);
    auto race = std::move(work) || std::move(limit);
    auto first = co_await std::move(race);
    if (auto* output = std::get_if<RunOutput>(&first))
        co_return std::move(*output);
    RunOutput leftBehind;
    leftBehind.timedOut = true;
    co_return leftBehind;
}

} // namespace kelvadrome
