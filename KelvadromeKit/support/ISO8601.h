#pragma once

#include "KelvadromeKit/support/Clock.h"

#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// Reads "2026-01-31T09:30:00Z", with or without a fraction of a second (any number of digits). The zone is
/// "Z", "+01:00" or "+0100" and may not be left out. Absent for anything else, blanks at the ends and days or
/// hours that don't exist included.
std::optional<WallTime> parseISO8601(std::string_view text);

/// The instant in UTC to whole seconds, rounded towards the past: "2026-01-31T09:30:00Z".
std::string formatISO8601(WallTime time);

} // namespace kelvadrome
