#pragma once

#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Task.h"

#include <boost/asio/io_context.hpp>

#include <functional>
#include <map>
#include <string>

namespace kelvadrome::test {

/// A clock that moves only when told. Sleepers wake in the order of their deadlines.
class ManualClock final : public Clock {
public:
    explicit ManualClock(WallTime start = wallTime(1'800'000'000)) : start_(start) {}

    WallTime now() const override;
    double uptime() const override;
    Task<> sleep(double seconds) override;

    /// Moves time by `seconds` and wakes what is due; what the woken then do happens in the loop's next turn.
    void advance(double seconds);
    /// Moves the wall clock only, as a user who sets the time does.
    void shiftWall(double seconds);
    /// How many sleepers wait.
    std::size_t sleepers() const;
    /// Seconds until the next sleeper's deadline; negative when none waits.
    double untilNext() const;
    /// Ends the sleepers where they are, as the end of a process does. They may hold this clock, which holds
    /// them.
    void letGo();

private:
    mutable std::mutex lock_;
    WallTime start_;
    double elapsed_ = 0;
    std::multimap<double, std::shared_ptr<Completion<bool>>> waiting_;
};

/// The main executor of a test, with a pool for blocking calls. Every wait has a deadline and a message.
class TestLoop {
public:
    static constexpr double limit = 20; // seconds; only a hung test ever sees it

    Executor executor() { return context_.get_executor(); }
    BackgroundPool& pool() { return pool_; }

    /// Runs the loop until the task ends; returns its value or throws what it threw. `each` runs in each
    /// turn.
    template <class T>
    T run(
        Task<T> task, const std::function<void()>& each = [] {}) {
        Outcome<T> outcome;
        bool ended = false;
        asio::co_spawn(context_, attempt(std::move(task)), [&](std::exception_ptr error, Outcome<T> result) {
            outcome = error ? Outcome<T>(error) : std::move(result);
            ended = true;
        });
        const auto turn = [&] {
            each();
            return ended;
        };
        until(turn, "a task to end");
        return outcome.take();
    }

    /// Runs the loop until the condition holds; fails the test with the message at the deadline.
    void until(const std::function<bool()>& condition, const std::string& what);

    /// Runs what is ready without waiting for other threads.
    void drain();

    /// Turns the clock to each next deadline in turn, for `seconds` in all, running the loop in between.
    void advance(ManualClock& clock, double seconds);

private:
    asio::io_context context_{1};
    BackgroundPool pool_; // after the loop: its jobs post to the loop until they are joined
};

} // namespace kelvadrome::test
