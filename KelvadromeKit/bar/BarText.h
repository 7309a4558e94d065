#pragma once

#include <string>
#include <string_view>

namespace kelvadrome::BarText {

/// One line of any text: each line end, of every kind that Unicode knows, becomes a blank, and then runs of
/// blanks become one. A text without a line end comes back as it is.
std::string sanitize(std::string_view text);

} // namespace kelvadrome::BarText
