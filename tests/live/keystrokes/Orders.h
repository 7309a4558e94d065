#pragma once

#include <csignal>

namespace kelvadrome::test {

/// What a recorder is told to do: the value that comes with `orderSignal`.
enum class Order {
    becomeAgent = 1, // its process execs a new agent, under the name of a second one
    becomeShell,     // its process execs a shell
    startReader,     // a child in its own group reads the terminal, while it waits
    startEditor,     // the same on the alternate screen, as an editor does
    startJob,        // a child in a group of its own gets the terminal
    leaveQuestion,   // the question on its screen gives way to another, of which it knows nothing more
    changeOptions,   // the other option of the folder question gets the mark, those of the menu change places
    replaceAgent,    // a shell: ends its agent and starts a second one
    reusePid,        // a shell: the same, and the second one gets the pid of the first
};

inline int orderSignal() {
    return SIGRTMIN;
}

} // namespace kelvadrome::test
