#pragma once

#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// What a child is given as its input once it has printed the line `ready`: `give` is called then, on a
/// thread of the runner's, with all that was printed so far, so that a look stands right before what rests on
/// it. Absent gives it no input.
struct LateInput {
    std::string ready;
    std::function<std::optional<std::string>(std::string_view printed)> give;
};

/// One child command.
struct RunCommand {
    std::string path;              // absolute
    std::vector<std::string> args; // without the program's name
    std::int64_t pauseAfterMs = 0; // how long the caller waits after success; the runner ignores it
    std::shared_ptr<const LateInput> input = {}; // none: it reads an end of file at once

    bool operator==(const RunCommand&) const = default;
};

/// What came back. A command that failed is a value like any other.
struct RunOutput {
    std::int32_t status = -1; // -1 when the process never started
    std::string stdoutText;   // at most its first 1,000,000 bytes, repaired
    std::string stderrText;   // at most its first 2,048 bytes, repaired
    bool timedOut = false;
    // What stands between the caller and the command adds these:
    std::optional<std::string> refusal = {}; // why it was not carried out, in the user's words
    bool mayHaveActed = false;               // it failed, and yet some of its effect may have come about
    double secondsSince = 0; // since its effect came about at the latest; a pause after it began then

    /// It ran to its end, and well. A tmux client that is told to stop ends with 0 too.
    bool succeeded() const { return status == 0 && !timedOut && !refusal; }
    bool operator==(const RunOutput&) const = default;
};

/// Where every child process of the delivery runs. Never throws. May be called from any executor.
class CommandRunning {
public:
    virtual ~CommandRunning() = default;
    /// `timeout` in seconds.
    virtual Task<RunOutput> run(RunCommand command, double timeout) = 0;
};

/// What a runner of real commands keeps to.
namespace CommandRules {

inline constexpr std::size_t keptOutput = 1'000'000; // bytes; more is read and dropped
inline constexpr std::size_t keptErrors = 2'048;     // bytes

/// `given` without colours, which would stand in text that is parsed.
std::map<std::string, std::string> environment(std::map<std::string, std::string> given);

/// What became of a command that ran, from the bytes that it wrote. `status` is that of its exit, or the
/// number of the signal that ended it.
RunOutput ended(std::int32_t status, std::string_view output, std::string_view errors, bool timedOut);

} // namespace CommandRules

} // namespace kelvadrome
