#pragma once

#include "KelvadromeKit/support/ISO8601.h"

namespace kelvadrome::LiveTime {

/// The instant of a job's ISO 8601 text, with or without a fraction of a second; absent for other text.
inline std::optional<WallTime> parse(std::string_view text) {
    return parseISO8601(text);
}

} // namespace kelvadrome::LiveTime
