#include "KelvadromeKit/support/Task.h"

#include "KelvadromeKit/support/Log.h"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/system/system_error.hpp>

namespace kelvadrome {

bool isCancellation(const std::exception_ptr& error) {
    if (!error)
        return false;
    try {
        std::rethrow_exception(error);
    } catch (const boost::system::system_error& e) {
        return e.code() == asio::error::operation_aborted;
    } catch (const asio::multiple_exceptions& e) { // of a race whose both sides were cancelled
        return isCancellation(e.first_exception());
    } catch (...) {
        return false;
    }
}

void TaskHandle::cancel() const {
    if (!state_)
        return;
    asio::dispatch(state_->executor, [state = state_] {
        if (!state->ended)
            state->signal.emit(asio::cancellation_type::terminal);
    });
}

TaskHandle spawn(Executor executor, std::string name, Task<> body) {
    TaskHandle handle;
    handle.state_ = std::make_shared<TaskHandle::State>(executor);
    auto finished = [state = handle.state_, name = std::move(name)](std::exception_ptr error) {
        state->ended = true;
        if (error && !isCancellation(error))
            logLine(name + " ended: " + describeException(error));
    };
    asio::co_spawn(executor, std::move(body),
        asio::bind_cancellation_slot(handle.state_->signal.slot(), std::move(finished)));
    return handle;
}

Task<bool> taskCancelled() {
    const auto state = co_await asio::this_coro::cancellation_state;
    co_return state.cancelled() != asio::cancellation_type::none;
}

} // namespace kelvadrome
