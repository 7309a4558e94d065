#include "KelvadromeKit/support/Task.h"

#include "KelvadromeKit/support/Log.h"

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

void detail::Cancellation::send(const Executor& executor, std::shared_ptr<Cancellation> to) {
    asio::dispatch(executor, [to = std::move(to)] {
        if (!to->ended)
            to->signal.emit(asio::cancellation_type::terminal);
    });
}

void TaskHandle::cancel() const {
    if (state_)
        detail::Cancellation::send(executor_, state_);
}

TaskHandle spawn(Executor executor, std::string name, Task<> body) {
    TaskHandle handle;
    handle.executor_ = executor;
    handle.state_ = std::make_shared<detail::Cancellation>();
    auto finished = [state = handle.state_, name = std::move(name)](std::exception_ptr error) {
        state->ended = true;
        if (error && !isCancellation(error))
            logLine(name + " ended: " + describeException(error));
    };
    asio::co_spawn(
        executor, std::move(body), detail::CancellableEnd{handle.state_->signal.slot(), std::move(finished)});
    return handle;
}

Task<bool> taskCancelled() {
    const auto state = co_await asio::this_coro::cancellation_state;
    co_return state.cancelled() != asio::cancellation_type::none;
}

} // namespace kelvadrome
