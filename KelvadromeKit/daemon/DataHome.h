#pragma once

#include <optional>
#include <string>

/// Whether the data home is a place for a daemon and its secrets. Asks the disk; any thread.
namespace kelvadrome::DataHome {

/// Why no daemon can be had or trusted in this home, in words for a person: its path is too long for a
/// socket; it or the socket in it belongs to another user; or others may write there, and so could put a
/// daemon of their own in ours' place. Absent for a home that is private, and for one that is still to be
/// made.
std::optional<std::string> refusal(const std::string& home);

} // namespace kelvadrome::DataHome
