#pragma once

#include "tests/support/TestLoop.h"

#include <functional>
#include <vector>

namespace kelvadrome::test {

/// Runs a task that pauses: turns the clock by each pause as it comes, after `onPause` was told of it.
template <class T>
T runPaced(
    TestLoop& loop, ManualClock& clock, Task<T> task, const std::function<void(double)>& onPause = {}) {
    Outcome<T> outcome;
    bool ended = false;
    asio::co_spawn(
        loop.executor(), attempt(std::move(task)), [&](std::exception_ptr error, Outcome<T> result) {
            outcome = error ? Outcome<T>(error) : std::move(result);
            ended = true;
        });
    loop.until(
        [&] {
            if (const auto pause = clock.untilNext(); pause >= 0) {
                if (onPause)
                    onPause(pause);
                clock.advance(pause);
            }
            return ended;
        },
        "a paced task to end");
    return outcome.take();
}

} // namespace kelvadrome::test
