#pragma once

#include <map>
#include <string>
#include <vector>

namespace kelvadrome {

/// What a short command came to. A command that failed is a value like any other.
struct CommandResult {
    int status = -1;    // the exit status or the signal's number; -1 when it never started or ran too long
    std::string output; // of standard output, at most its first MiB
    std::string errors; // of standard error, at most its first MiB
    bool timedOut = false;

    bool operator==(const CommandResult&) const = default;
};

/// Runs a program to its end, with the null device as its input. After `limit` seconds it and all that it
/// started in its session's group are killed. Blocks; any thread.
CommandResult runCommand(const std::string& executable, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment, double limit);

} // namespace kelvadrome
