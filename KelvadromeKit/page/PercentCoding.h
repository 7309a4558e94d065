#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// Alphanumerics and "-", ".", "_", "~" stay; every other byte becomes "%XX".
std::string percentEncoded(std::string_view text);
/// Absent for a "%" without two hexadecimal digits, or when the result isn't valid UTF-8.
std::optional<std::string> percentDecoded(std::string_view text);

} // namespace kelvadrome
