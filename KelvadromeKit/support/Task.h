#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

namespace kelvadrome {

namespace asio = boost::asio;

/// Where a coroutine runs: it always resumes on the executor it was spawned on.
using Executor = asio::any_io_executor;

/// The project's one coroutine type. Pass values, not references, and never use a capturing lambda as a
/// coroutine: its captures die with the lambda. Starts when awaited or spawned.
template <class T = void>
using Task = asio::awaitable<T>;

/// What a task ended with: a value or an exception.
template <class T>
class Outcome {
public:
    Outcome() = default;
    explicit Outcome(T value) : result_(std::in_place_index<1>, std::move(value)) {}
    explicit Outcome(std::exception_ptr error) : result_(std::in_place_index<0>, std::move(error)) {}

    explicit operator bool() const { return result_.index() == 1; }
    T& operator*() { return std::get<1>(result_); }
    T* operator->() { return &std::get<1>(result_); }
    std::exception_ptr error() const { return result_.index() == 0 ? std::get<0>(result_) : nullptr; }

    /// The value, or the exception thrown again.
    T take() {
        if (result_.index() == 0)
            std::rethrow_exception(std::get<0>(result_));
        return std::move(std::get<1>(result_));
    }

private:
    std::variant<std::exception_ptr, T> result_;
};

template <>
class Outcome<void> {
public:
    Outcome() = default;
    explicit Outcome(std::exception_ptr error) : error_(std::move(error)) {}

    explicit operator bool() const { return !error_; }
    std::exception_ptr error() const { return error_; }
    void take() {
        if (error_)
            std::rethrow_exception(error_);
    }

private:
    std::exception_ptr error_;
};

/// True for the error that a cancelled wait throws.
bool isCancellation(const std::exception_ptr& error);

namespace detail {

/// Carries a cancellation to a task on its executor. Both members are touched there only.
struct Cancellation {
    asio::cancellation_signal signal;
    bool ended = false; // the task has, and the signal's slot is no longer there

    static void send(const Executor& executor, std::shared_ptr<Cancellation> to);
};

/// What a task started by co_spawn ends with, and the slot that cancels it. In place of
/// asio::bind_cancellation_slot, with which Asio 1.81 hands a cancellation to the executor once more: it then
/// arrives after the signal may have gone. With this type, which names no executor, it goes straight to the
/// task.
template <class Function>
struct CancellableEnd {
    using cancellation_slot_type = asio::cancellation_slot;
    cancellation_slot_type get_cancellation_slot() const noexcept { return slot; }

    template <class... Arguments>
    void operator()(Arguments&&... arguments) {
        function(std::forward<Arguments>(arguments)...);
    }

    asio::cancellation_slot slot;
    Function function;
};

} // namespace detail

/// A started task. Copies name the same task; dropping the handle lets the task run on.
class TaskHandle {
public:
    TaskHandle() = default;

    /// Asks the task to end: its current or next wait throws. May be called from any thread.
    void cancel() const;
    explicit operator bool() const { return state_ != nullptr; }

private:
    friend TaskHandle spawn(Executor executor, std::string name, Task<> body);
    Executor executor_;
    std::shared_ptr<detail::Cancellation> state_;
};

/// Starts a task by name. What escapes it is logged under that name, cancellation excepted.
TaskHandle spawn(Executor executor, std::string name, Task<> body);

/// Runs a task to its end and catches what it throws.
template <class T>
Task<Outcome<T>> attempt(Task<T> task) {
    // A co_await inside a handler is not allowed, so the error is carried out of it.
    std::exception_ptr error;
    try {
        if constexpr (std::is_void_v<T>) {
            co_await std::move(task);
            co_return Outcome<void>();
        } else {
            co_return Outcome<T>(co_await std::move(task));
        }
    } catch (...) {
        error = std::current_exception();
    }
    co_return Outcome<T>(error);
}

/// Runs two or more tasks at the same time; each failure is caught by itself, so that none fails the others.
template <class... T>
Task<std::tuple<Outcome<T>...>> gather(Task<T>... tasks) {
    using namespace asio::experimental::awaitable_operators;
    co_return co_await (... && attempt(std::move(tasks)));
}

/// True when the running task was asked to end.
Task<bool> taskCancelled();

/// Runs a task that the caller's cancellation does not reach; the caller learns of it at its next wait.
template <class T>
Task<T> shielded(Task<T> task) {
    const auto executor = co_await asio::this_coro::executor;
    auto outcome = co_await asio::co_spawn(executor, attempt(std::move(task)),
        asio::bind_cancellation_slot(asio::cancellation_slot(), asio::use_awaitable));
    if constexpr (std::is_void_v<T>) {
        outcome.take();
    } else {
        co_return outcome.take();
    }
}

/// Ends one suspension. Copyable; may be called from any thread; calls after the first are ignored.
template <class T>
class Completion {
public:
    explicit Completion(std::function<void(T)> finish) : finish_(std::move(finish)) {}
    void operator()(T value) const { finish_(std::move(value)); }

private:
    std::function<void(T)> finish_;
};

namespace detail {

template <class Handler>
struct PendingCompletion {
    PendingCompletion(Handler h, Executor e) : handler(std::move(h)), executor(std::move(e)) {}
    std::atomic<bool> taken = false;
    Handler handler;
    Executor executor;
};

} // namespace detail

/// Suspends until `start`'s completion is called. When `start` returns a closure, cancellation calls it; that
/// closure must bring about the completion, and may come late, after the completion was called.
template <class T, class Start>
Task<T> suspendUntil(Start start) {
    // GCC 12 destroys what a temporary inside a co_await expression owns twice, so the closure gets a name
    // first.
    auto initiate = [start = std::move(start)](auto handler) mutable {
        auto slot = asio::get_associated_cancellation_slot(handler);
        Executor executor =
            asio::prefer(asio::get_associated_executor(handler), asio::execution::outstanding_work.tracked);
        using Pending = detail::PendingCompletion<decltype(handler)>;
        auto pending = std::make_shared<Pending>(std::move(handler), std::move(executor));
        Completion<T> completion([pending](T result) {
            if (pending->taken.exchange(true))
                return;
            auto on = std::exchange(pending->executor, Executor());
            asio::post(on, [handler = std::move(pending->handler),
                               result = std::optional<T>(std::move(result))]() mutable {
                std::move(handler)(std::move(result));
            });
        });
        if constexpr (std::is_void_v<std::invoke_result_t<Start&, Completion<T>>>) {
            start(completion);
        } else {
            auto cancel = start(completion);
            if (slot.is_connected()) {
                slot.assign([cancel = std::move(cancel)](asio::cancellation_type) mutable { cancel(); });
            }
        }
    };
    auto waiting = asio::async_initiate<const asio::use_awaitable_t<>, void(std::optional<T>)>(
        std::move(initiate), asio::use_awaitable);
    auto value = co_await std::move(waiting);
    co_return std::move(*value);
}

/// Runs a task on another executor (a strand, say) and resumes the caller on its own.
/// Cancelling the caller cancels the task.
template <class T>
Task<T> runOn(Executor executor, Task<T> task) {
    // Awaiting co_spawn on another executor won't do: see detail::CancellableEnd.
    auto start = [executor, body = attempt(std::move(task))](Completion<Outcome<T>> completion) mutable {
        const auto state = std::make_shared<detail::Cancellation>();
        auto finished = [state, completion](std::exception_ptr error, Outcome<T> outcome) {
            state->ended = true;
            completion(error ? Outcome<T>(error) : std::move(outcome));
        };
        asio::co_spawn(
            executor, std::move(body), detail::CancellableEnd{state->signal.slot(), std::move(finished)});
        return [executor, state] { detail::Cancellation::send(executor, state); };
    };
    auto outcome = co_await suspendUntil<Outcome<T>>(std::move(start));
    if constexpr (std::is_void_v<T>) {
        outcome.take();
    } else {
        co_return outcome.take();
    }
}

} // namespace kelvadrome
