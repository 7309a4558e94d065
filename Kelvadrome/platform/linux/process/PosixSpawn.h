#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelvadrome {

/// Both ends close on exec and are above the three standard streams, so that they can be put in their place.
struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;

    /// Throws std::system_error.
    static Pipe make();
};

/// A child that was started. Whoever holds it has to reap it.
struct SpawnedProcess {
    pid_t pid = -1;
    Descriptor exited; // readable from the moment the child is dead
};

struct SpawnRequest {
    std::string executable;             // absolute
    std::vector<std::string> arguments; // without the program's name
    std::map<std::string, std::string> environment;
    std::optional<std::string> currentDirectory = {};
    // The child's streams; the null device where none is given.
    int standardInput = -1;
    int standardOutput = -1;
    int standardError = -1;
};

/// Starts a program in a session of its own, so that no key pressed in our terminal reaches it. It inherits
/// the three streams and nothing else; no signal is blocked or ignored in it. Throws std::system_error that
/// names the program.
SpawnedProcess spawnProcess(const SpawnRequest& request);

/// The status that a dead child ended with, or the number of the signal that killed it. Reaps it; call once.
int reapStatus(pid_t pid);
/// Whether a child that hasn't been reaped still runs.
bool stillRuns(pid_t pid);

} // namespace kelvadrome
