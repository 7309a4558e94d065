#include "KelvadromeKit/delivery/CommandRunning.h"

#include "KelvadromeKit/support/Text.h"

namespace kelvadrome::CommandRules {

std::map<std::string, std::string> environment(std::map<std::string, std::string> given) {
    given.insert_or_assign("NO_COLOR", "1");
    return given;
}

RunOutput ended(std::int32_t status, std::string_view output, std::string_view errors, bool timedOut) {
    return {.status = status,
        .stdoutText = Text::repairUTF8(output),
        .stderrText = Text::repairUTF8(errors),
        .timedOut = timedOut};
}

} // namespace kelvadrome::CommandRules
