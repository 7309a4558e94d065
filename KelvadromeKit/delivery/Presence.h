#pragma once

#include <string>
#include <string_view>

namespace kelvadrome::Presence {

/// What the daemon stamps on a job pressed in the page session with this id: the first 32 hexadecimal digits
/// of the id's SHA-256. A job that was pressed in another browser carries another tag.
std::string tag(std::string_view sessionId);

} // namespace kelvadrome::Presence
