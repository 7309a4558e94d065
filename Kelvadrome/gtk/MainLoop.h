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

    GMainContext* const context_;
    GSource* const source_;
    std::mutex lock_;
    std::deque<Handler> handlers_;
};

/// What Asio asks of an executor; it never runs a handler inside `execute`.
class MainLoop::executor_type {
public:
    explicit executor_type(MainLoop& loop) noexcept : loop_(&loop) {}

    template <class Function>
    void execute(Function function) const {
        loop_->post(std::move(function));
    }
    asio::execution_context& query(asio::execution::context_t) const noexcept { return *loop_; }
    static constexpr asio::execution::blocking_t query(asio::execution::blocking_t) noexcept {
        return asio::execution::blocking.never;
    }
    executor_type require(asio::execution::blocking_t::never_t) const noexcept { return *this; }

    bool operator==(const executor_type&) const noexcept = default;

private:
    MainLoop* loop_;
};

} // namespace kelvadrome
