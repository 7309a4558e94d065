#include "KelvadromeKit/support/TaskBag.h"

namespace kelvadrome {

TaskBag::TaskBag(Executor executor) : executor_(std::move(executor)), state_(std::make_shared<State>()) {}

TaskHandle TaskBag::launch(std::string name, Task<> body) {
    if (state_->closed)
        return {};
    const auto id = state_->next++;
    auto handle = spawn(executor_, std::move(name), track(state_, executor_, id, std::move(body)));
    state_->running.emplace(id, handle);
    return handle;
}

void TaskBag::close() {
    state_->closed = true;
    for (const auto& [id, handle] : std::exchange(state_->running, {}))
        handle.cancel();
}

Task<> TaskBag::track(std::weak_ptr<State> weak, Executor executor, std::uint64_t id, Task<> body) {
    // A turn later at the earliest, so that the task is in the bag before it can end.
    auto begun = co_await attempt(asio::post(executor, asio::use_awaitable));
    Outcome<void> outcome(begun.error());
    if (begun)
        outcome = co_await attempt(std::move(body));
    if (const auto state = weak.lock())
        state->running.erase(id);
    outcome.take();
}

} // namespace kelvadrome
