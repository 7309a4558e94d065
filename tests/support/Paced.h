#pragma once

#include "tests/support/TestLoop.h"

#include <functional>
#include <vector>

namespace kelvadrome::test {

/// Runs a task that pauses: turns the clock by each pause as it comes, after `onPause` was told of it.
template <class T>
T runPaced(
    TestLoop& loop, ManualClock& clock, Task<T> task, const std::function<void(double)>& onPause = {}) {
    return loop.run(std::move(task), [&] {
        if (const auto pause = clock.untilNext(); pause >= 0) {
            if (onPause)
                onPause(pause);
            clock.advance(pause);
        }
    });
}

} // namespace kelvadrome::test
