#include "KelvadromeKit/page/SkillRunCommand.h"

#include <re2/re2.h>

namespace kelvadrome {

std::optional<std::string> SkillRunCommand::validate(std::string_view runId, std::string_view command) {
    static const RE2 pattern("[A-Za-z0-9_-]{1,80}");
    if (!RE2::FullMatch(re2::StringPiece(runId.data(), runId.size()), pattern))
        return std::nullopt;
    if (command != "kd skills run " + std::string(runId))
        return std::nullopt;
    return std::string(command);
}

} // namespace kelvadrome
