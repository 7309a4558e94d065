#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// The name that a process goes by: its command, but for a script that an interpreter runs the script's own
/// name, without its extension; a script that is called "index" or the like goes by its package, a module of
/// Python by its first part. (Node calls its process "MainThread".) The daemon names the agent that asks by
/// the same rule. `arguments` are the words of the command line, the interpreter first.
std::string programName(std::string_view command, const std::vector<std::string>& arguments);

} // namespace kelvadrome
