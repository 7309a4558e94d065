#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The allow-list for the one case in which a shell runs a line: an agent alone, with a session id, or with a
/// resume word and a session id.
namespace kelvadrome::ShellLine {

/// The text as one word of a POSIX shell, whatever is in it.
std::string quote(std::string_view text);

/// `cd <cwd> && <argv>`, every word quoted; absent when the command isn't one of the templates.
std::optional<std::string> validated(const std::string& cwd, const std::vector<std::string>& argv);

/// What to start: `argv`, or for a resumed Claude session `argv`, "--" and its first prompt.
std::optional<std::vector<std::string>> openArgv(
    const std::string& cwd, const std::vector<std::string>& argv, const std::optional<std::string>& prompt);

/// `cd <cwd> && <openArgv>`, every word quoted.
std::optional<std::string> open(
    const std::string& cwd, const std::vector<std::string>& argv, const std::optional<std::string>& prompt);

} // namespace kelvadrome::ShellLine
