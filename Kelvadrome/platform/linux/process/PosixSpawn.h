#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelvadrome {

/// Both ends close on exec and are above the three standard streams, so that they can be put in their place.
struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;

    /// Throws std::system_error, as all that makes one.
    static Pipe make();
    /// A socket, to which writing is no signal when the reader has gone.
    static Pipe makeSocket();
};

/// A child from its start until it is reaped. A signal and the reaping never overlap, so that no signal goes
/// to a stranger's number. Whoever holds it has to reap it. Any thread.
class SpawnedProcess {
public:
    explicit SpawnedProcess(pid_t pid);

    pid_t pid() const { return pid_; }
    /// Readable from the moment the child is dead. -1 where the system has none left: then `isRunning` is to
    /// be asked.
    int exited() const { return exited_.get(); }

    bool isRunning() const;
    void signal(int number) const;
    /// To it and to all that it started and left in its group.
    void signalGroup(int number) const;
    /// Waits for its end and gives its exit status, or the number of the signal that ended it. Call once.
    int reap();

private:
    void signalUnlessReaped(pid_t whom, int number) const;

    const pid_t pid_;
    const Descriptor exited_;
    mutable std::mutex lock_;
    bool reaped_ = false;
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

/// Starts a program in a session and a group of its own, so that no key pressed in our terminal reaches it.
/// It inherits the three streams and nothing else; no signal is blocked or ignored in it. Throws
/// std::system_error that names the program.
std::shared_ptr<SpawnedProcess> spawnProcess(const SpawnRequest& request);

} // namespace kelvadrome
