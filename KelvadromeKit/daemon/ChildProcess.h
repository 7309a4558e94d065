#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// A long-lived child with a pipe as its standard input, unless it is silent. Destroying the object closes
/// that pipe and nothing else: the child is still reaped, and its exit still told. No call blocks; any
/// thread.
class ChildProcess {
public:
    virtual ~ChildProcess() = default;

    /// False from the moment the process is dead, which may be before its exit is told.
    virtual bool isRunning() const = 0;
    virtual std::int32_t pid() const = 0;
    virtual void terminate() = 0; // SIGTERM, if it still runs
    virtual void kill() = 0;      // SIGKILL, if it still runs
    /// The child reads end of file from then on.
    virtual void closeInput() = 0;
};

/// Starts children.
class ChildLauncher {
public:
    struct Command {
        std::string executable;             // absolute
        std::vector<std::string> arguments; // without the program's name
        std::map<std::string, std::string> environment;
        std::string currentDirectory;
        bool silent = false; // its three streams are the null device: no input, no output
    };
    /// Called on threads of the launcher's own; the exit comes once, after the output that was there by then.
    struct Callbacks {
        std::function<void(std::string)> output; // a chunk of standard output and error, merged; never empty
        std::function<void(std::int32_t)>
            exited; // the exit status, or the number of the signal that killed it
    };

    /// What a program that was run to its end said.
    struct Output {
        std::string text = {};    // its standard output; empty when it couldn't be started or took too long
        std::string problem = {}; // without a text, why there is none, as the end of a sentence for a person
    };

    virtual ~ChildLauncher() = default;

    /// Throws std::system_error when the program can't be started; then nothing is called.
    virtual std::shared_ptr<ChildProcess> launch(Command command, Callbacks callbacks) = 0;

    /// Runs a program to its end, which is made after `limit` seconds. Blocks.
    virtual Output output(std::string executable, std::vector<std::string> arguments, double limit) = 0;
};

} // namespace kelvadrome
