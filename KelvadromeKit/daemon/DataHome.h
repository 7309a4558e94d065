#pragma once

#include <optional>
#include <string>

/// Whether the data home is a place for secrets. Asks the disk; any thread.
namespace kelvadrome::DataHome {

/// Why nothing may be trusted that lies in the home, in words for a person: it or the socket in it belongs to
/// another user, or others may write there, and so could put a daemon of their own in ours' place. Absent for
/// a home that is private, and for one that is still to be made.
std::optional<std::string> refusal(const std::string& home);

} // namespace kelvadrome::DataHome
