#pragma once

#include "KelvadromeKit/delivery/TerminalApp.h"

#include <functional>
#include <memory>
#include <string>

namespace kelvadrome {

/// Asks the system for consent to script an app, without showing anything, and survives a call that hangs:
/// the asker waits for a second at most, and as long as the call hangs everybody else gets no answer at once,
/// so that never more than one is stuck. Safe from any thread; a stuck call may outlive the guard.
class ConsentGuard {
public:
    static constexpr double limit = 1.0; // seconds

    /// The system call, from bundle id to code; runs on a thread of its own.
    using Call = std::function<ConsentCode(std::string)>;

    explicit ConsentGuard(Call call);

    /// Absent when no answer came in time or another call is stuck.
    ConsentCode consent(std::string bundleId) const;

private:
    struct State;
    Call call_;
    std::shared_ptr<State> state_;
};

} // namespace kelvadrome
