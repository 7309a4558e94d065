#pragma once

#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace kelvadrome {

/// The tasks that one main-thread object has under way, so that all can be ended with it. Lives on its
/// executor.
class TaskBag {
public:
    explicit TaskBag(Executor executor);

    /// Starts a task in the executor's next turn; its handle is dropped when it ends. Nothing after `close`.
    TaskHandle launch(std::string name, Task<> body);
    /// Cancels all that runs and refuses what comes.
    void close();
    bool closed() const { return state_->closed; }
    /// How many tasks are under way.
    std::size_t size() const { return state_->running.size(); }

private:
    struct State {
        std::map<std::uint64_t, TaskHandle> running;
        std::uint64_t next = 0;
        bool closed = false;
    };
    static Task<> track(std::weak_ptr<State> weak, Executor executor, std::uint64_t id, Task<> body);

    Executor executor_;
    std::shared_ptr<State> state_;
};

} // namespace kelvadrome
