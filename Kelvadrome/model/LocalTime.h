#pragma once

#include "KelvadromeKit/support/Clock.h"

#include <string>

namespace kelvadrome {

/// The time of day in the user's time zone and as the locale writes it: "14:05", or "2:05 PM".
std::string clockTime(WallTime time);
/// "Today", "Yesterday" or the date as the locale writes it.
std::string dayWords(WallTime day, WallTime now);
/// The time of day, after the date when that isn't today's.
std::string momentWords(WallTime time, WallTime now);
/// Whether both fall on one day of the user's calendar.
bool isSameDay(WallTime left, WallTime right);

} // namespace kelvadrome
