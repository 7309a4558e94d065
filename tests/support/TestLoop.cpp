#include "tests/support/TestLoop.h"

#include <stdexcept>

namespace kelvadrome::test {

WallTime ManualClock::now() const {
    std::lock_guard guard(lock_);
    return start_ + seconds(elapsed_);
}

double ManualClock::uptime() const {
    std::lock_guard guard(lock_);
    return elapsed_;
}

Task<> ManualClock::sleep(double duration) {
    if (duration <= 0)
        co_return;
    const auto cancelled = co_await suspendUntil<bool>([this, duration](auto completion) {
        auto sleeper = std::make_shared<Completion<bool>>(std::move(completion));
        {
            std::lock_guard guard(lock_);
            waiting_.emplace(elapsed_ + duration, sleeper);
        }
        return [this, weak = std::weak_ptr(sleeper)] {
            const auto sleeper = weak.lock();
            if (!sleeper)
                return;
            {
                std::lock_guard guard(lock_);
                std::erase_if(waiting_, [&](const auto& entry) { return entry.second == sleeper; });
            }
            (*sleeper)(true);
        };
    });
    if (cancelled)
        throw boost::system::system_error(asio::error::operation_aborted);
}

void ManualClock::advance(double duration) {
    std::vector<std::shared_ptr<Completion<bool>>> due;
    {
        std::lock_guard guard(lock_);
        elapsed_ += duration;
        const auto end = waiting_.upper_bound(elapsed_ + 1e-9);
        for (auto it = waiting_.begin(); it != end; ++it)
            due.push_back(it->second);
        waiting_.erase(waiting_.begin(), end);
    }
    for (const auto& sleeper : due)
        (*sleeper)(false);
}

void ManualClock::shiftWall(double duration) {
    std::lock_guard guard(lock_);
    start_ += seconds(duration);
}

std::size_t ManualClock::sleepers() const {
    std::lock_guard guard(lock_);
    return waiting_.size();
}

double ManualClock::untilNext() const {
    std::lock_guard guard(lock_);
    return waiting_.empty() ? -1 : waiting_.begin()->first - elapsed_;
}

void ManualClock::letGo() {
    decltype(waiting_) ended;
    std::lock_guard guard(lock_);
    ended.swap(waiting_); // what they hold goes after the lock: its end may come back here
}

void TestLoop::until(const std::function<bool()>& condition, const std::string& what) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            throw std::runtime_error("waited in vain for " + what);
        context_.restart();
        context_.run_one_for(std::chrono::milliseconds(20));
    }
}

void TestLoop::drain() {
    context_.restart();
    context_.poll();
}

void TestLoop::advance(ManualClock& clock, double duration) {
    drain();
    while (duration > 0) {
        const auto next = clock.untilNext();
        const auto step = next >= 0 && next < duration ? next : duration;
        clock.advance(step);
        duration -= step;
        drain();
        if (step == 0 && next < 0)
            break;
    }
    drain();
}

} // namespace kelvadrome::test
