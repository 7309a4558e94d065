#pragma once

#include "KelvadromeKit/support/Task.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kelvadrome {

/// Threads for blocking system calls. A job never waits for another: the pool grows when all its threads are
/// busy, so a stream or a long poll can't starve a health check. Safe from any thread.
class BackgroundPool {
public:
    BackgroundPool() = default;
    /// Waits for the jobs that run; those that haven't begun still run.
    ~BackgroundPool();
    BackgroundPool(const BackgroundPool&) = delete;
    BackgroundPool& operator=(const BackgroundPool&) = delete;

    void post(std::function<void()> job);

    /// Runs `work` on a pool thread and resumes the caller on its own executor. A cancelled caller doesn't
    /// interrupt the work and is resumed when it has ended.
    template <class Work>
    Task<std::invoke_result_t<Work&>> run(Work work) {
        return run(std::move(work), [] {});
    }

    /// The same for work that can be ended early: cancelling the caller calls `cancel`, which must bring
    /// about the work's end. It may also come after that.
    template <class Work, class Cancel>
    Task<std::invoke_result_t<Work&>> run(Work work, Cancel cancel) {
        using Result = std::invoke_result_t<Work&>;
        auto shared = std::make_shared<Work>(std::move(work));
        // Named first: GCC 12 destroys a closure that is made inside the await expression twice.
        const auto start = [this, shared, cancel](auto completion) {
            post([shared, completion] { completion(capture<Result>(*shared)); });
            return cancel;
        };
        auto outcome = co_await suspendUntil<Outcome<Result>>(start);
        if constexpr (std::is_void_v<Result>) {
            outcome.take();
        } else {
            co_return outcome.take();
        }
    }

private:
    template <class Result, class Work>
    static Outcome<Result> capture(Work& work) {
        try {
            if constexpr (std::is_void_v<Result>) {
                work();
                return Outcome<void>();
            } else {
                return Outcome<Result>(work());
            }
        } catch (...) {
            return Outcome<Result>(std::current_exception());
        }
    }

    void grow();
    void work();

    std::mutex lock_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    std::vector<std::thread> threads_;
    std::size_t idle_ = 0;
    bool closing_ = false;
};

} // namespace kelvadrome
