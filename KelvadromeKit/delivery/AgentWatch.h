#pragma once

#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kelvadrome {

/// A tmux server, as the environment of a process in it names it.
struct TmuxServer {
    std::string socket; // absolute
    std::int64_t pid = 0;

    bool operator==(const TmuxServer&) const = default;
};

/// The agent of one job, as this machine sees it. The first look is remembered, and every later one is
/// compared with it: when another process has the pid by now, or the process runs another program, the agent
/// is gone. Any executor; a look takes a few milliseconds on a thread of its own.
class AgentWatch {
public:
    virtual ~AgentWatch() = default;

    /// What `ps -o pid=,pgid=,tpgid=,tty=,comm= -p PID` would print of it, empty once it is gone or another.
    /// Absent where only `ps` can tell.
    virtual Task<std::optional<std::string>> psLine() = 0;

    /// Why no key may be typed at this moment: it has ended, is another, doesn't go on, or isn't alone at its
    /// terminal. Blocks for a few milliseconds; for the thread that types.
    virtual std::optional<std::string> refusalNow() = 0;

    /// Who else may have taken a key that went in a moment ago. That the agent has ended is no doubt where
    /// the key told it to.
    virtual Task<std::optional<std::string>> doubt(bool toldToEnd) = 0;

    /// Nothing of what was typed waits to be read; true where that can't be told.
    virtual Task<bool> hasRead() = 0;

    /// Everything that was typed has been read by a program that draws its own input line (no line editing of
    /// the terminal's, as at a password prompt).
    virtual Task<bool> tookInput() = 0;

    /// The tmux server that it was started in; absent where none is named.
    virtual Task<std::optional<TmuxServer>> tmuxServer() = 0;
    /// Whether nobody but this user can have made the socket.
    virtual Task<bool> isOwnSocket(std::string path) = 0;
};

} // namespace kelvadrome
