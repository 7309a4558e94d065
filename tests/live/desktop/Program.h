#pragma once

#include "Kelvadrome/glib/GLibOwned.h"

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelvadrome::test {

/// A program that a test runs beside itself. It ends with this object, or with the test.
class Program {
public:
    using Environment = std::map<std::string, std::string>;

    /// The environment is whole: nothing of the test's own is added. What it writes goes to `log`.
    Program(const std::vector<std::string>& words, const Environment& environment, const std::string& log);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// 0 when the program had ended before its number could be asked for.
    pid_t pid() const { return pid_; }
    bool running() const;
    void signal(int number);
    /// Absent while it runs, and when a signal ended it.
    std::optional<int> exitStatus() const;

private:
    OwnedObject<GSubprocess> process_;
    pid_t pid_ = 0;
};

/// Runs a program to its end and gives what it wrote; empty when it failed.
std::string output(const std::vector<std::string>& words, const Program::Environment& environment);

} // namespace kelvadrome::test
