#include "KelvadromeKit/support/Clock.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <thread>

namespace kelvadrome {

struct SystemClock::Timers {
    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(context);
    std::thread thread{[this] { context.run(); }};

    ~Timers() {
        context.stop();
        thread.join();
    }
};

SystemClock::SystemClock() : timers_(std::make_unique<Timers>()) {}

SystemClock::~SystemClock() = default;

WallTime SystemClock::now() const {
    return std::chrono::system_clock::now();
}

double SystemClock::uptime() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Task<> SystemClock::sleep(double duration) {
    if (duration <= 0)
        co_return;
    // The timer belongs to the timers' thread: it is made, started and cancelled there only.
    const auto cancelled =
        co_await suspendUntil<bool>([context = &timers_->context, duration](auto completion) {
            auto timer = std::make_shared<asio::steady_timer>(*context);
            const auto limit =
                std::chrono::duration_cast<std::chrono::steady_clock::duration>(seconds(duration));
            timer->expires_after(limit);
            timer->async_wait(
                [timer, completion](const boost::system::error_code& error) { completion(bool(error)); });
            return [context, weak = std::weak_ptr(timer)] {
                asio::post(*context, [weak] {
                    if (auto timer = weak.lock())
                        timer->cancel();
                });
            };
        });
    if (cancelled)
        throw boost::system::system_error(asio::error::operation_aborted);
}

} // namespace kelvadrome
