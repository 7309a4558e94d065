#include "Kelvadrome/platform/linux/process/PosixCommand.h"

#include "Kelvadrome/platform/linux/process/ChildRun.h"

#include <system_error>

namespace kelvadrome {

namespace {

constexpr std::size_t keptBytes = 1 << 20;

} // namespace

CommandResult runCommand(const std::string& executable, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment, double limit) {
    CommandResult result;
    try {
        ChildRun child({.executable = executable, .arguments = arguments, .environment = environment},
            {.keptOutput = keptBytes,
                .keptErrors = keptBytes,
                .atLimit = ChildRules::AtLimit::killGroup,
                .limit = limit});
        auto end = child.finish();
        if (!end.timedOut)
            result.status = *end.status;
        result.output = std::move(end.output);
        result.errors = std::move(end.errors);
        result.timedOut = end.timedOut;
    } catch (const std::system_error& error) {
        result.errors = error.what();
    }
    return result;
}

} // namespace kelvadrome
