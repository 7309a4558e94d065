#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome::SkillRunCommand {

/// The command, if it is the one text that its run id implies: the page can't put any other on the
/// pasteboard.
std::optional<std::string> validate(std::string_view runId, std::string_view command);

} // namespace kelvadrome::SkillRunCommand
