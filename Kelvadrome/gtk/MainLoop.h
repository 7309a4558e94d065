#pragma once

#include "KelvadromeKit/support/Task.h"

#include <boost/asio/execution.hpp>
#include <boost/asio/execution_context.hpp>
#include <glib.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace kelvadrome {

/// GLib's main loop as an executor: what is posted, from any thread, runs in one of the loop's coming turns.
/// A turn stops early enough for the next frame to be drawn. Must outlive all that holds its executor; what
/// hasn't run by then is destroyed with it.
class MainLoop final : public asio::execution_context {
public:
    class executor_type;

    explicit MainLoop(GMainContext* context = nullptr);
    ~MainLoop();

    executor_type executor() noexcept;
    /// Runs the loop until `done`, or for `limit` seconds at most. For the end of the application, when the
    /// toolkit no longer runs it.
    void runUntil(const std::function<bool()>& done, double limit);

private:
    using Handler = std::move_only_function<void()>;

    static gboolean dispatch(GSource* source, GSourceFunc, gpointer);
    void post(Handler handler);
    void turn();
    void run(Handler handler);

    static thread_local const MainLoop* turning_; // the one in a turn of which this thread is; null outside

    GMainContext* const context_;
    GSource* const source_;
    std::mutex lock_;
    std::deque<Handler> handlers_;
};

/// What Asio asks of an executor. As with Asio's own, what is dispatched in a turn of the loop runs at once:
/// a task that is started in a task has begun before a cancellation can come, which Asio throws out of the
/// loop when it finds the task not begun.
class MainLoop::executor_type {
public:
    using Blocking = asio::execution::blocking_t;

    explicit executor_type(MainLoop& loop) noexcept : loop_(&loop) {}

    template <class Function>
    void execute(Function function) const {
        if (atOnce_ && turning_ == loop_)
            return function();
        loop_->post(std::move(function));
    }
    asio::execution_context& query(asio::execution::context_t) const noexcept { return *loop_; }
    Blocking query(Blocking) const noexcept {
        return atOnce_ ? Blocking(Blocking::possibly) : Blocking(Blocking::never);
    }
    executor_type require(Blocking::never_t) const noexcept { return {loop_, false}; }
    executor_type require(Blocking::possibly_t) const noexcept { return {loop_, true}; }

    bool operator==(const executor_type&) const noexcept = default;

private:
    executor_type(MainLoop* loop, bool atOnce) noexcept : loop_(loop), atOnce_(atOnce) {}

    MainLoop* loop_;
    bool atOnce_ = true;
};

} // namespace kelvadrome
