#pragma once

#include <atomic>
#include <memory>

namespace kelvadrome {

/// Whether the user's session is locked, as logind tells it. Listens on a thread of its own, so that neither
/// an absent nor a stuck bus holds anybody up; what isn't known reads as unlocked. Safe from any thread.
class LogindLock {
public:
    LogindLock();
    ~LogindLock();
    LogindLock(const LogindLock&) = delete;
    LogindLock& operator=(const LogindLock&) = delete;

    /// What logind said last; returns at once.
    bool screenLocked() const;

private:
    class Listener;
    std::unique_ptr<Listener> listener_;
};

} // namespace kelvadrome
