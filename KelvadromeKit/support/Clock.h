#pragma once

#include "KelvadromeKit/support/Task.h"

#include <chrono>
#include <memory>

namespace kelvadrome {

/// An instant of wall time with a fraction of a second. Differences count in seconds.
using WallTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<double>>;

inline constexpr WallTime distantPast = WallTime(std::chrono::duration<double>(-62135769600.0));

inline constexpr std::chrono::duration<double> seconds(double count) {
    return std::chrono::duration<double>(count);
}

inline constexpr WallTime wallTime(double secondsSince1970) {
    return WallTime(seconds(secondsSince1970));
}

/// The one source of time, so that tests can turn it by hand.
class Clock {
public:
    virtual ~Clock() = default;

    virtual WallTime now() const = 0;
    /// Seconds on a clock that never goes back; only differences mean anything.
    virtual double uptime() const = 0;
    /// Suspends for `seconds` (at once when not positive). A cancelled sleep throws; see isCancellation.
    virtual Task<> sleep(double seconds) = 0;
};

/// The machine's clock. Its timers run on a thread of their own, so any executor can sleep on it.
class SystemClock final : public Clock {
public:
    SystemClock();
    ~SystemClock() override;

    WallTime now() const override;
    double uptime() const override;
    Task<> sleep(double seconds) override;

private:
    struct Timers;
    std::unique_ptr<Timers> timers_;
};

} // namespace kelvadrome
