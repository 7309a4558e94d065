#pragma once

#include <plist/plist.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// A property list as libplist has it, in XML or binary.
namespace PropertyList {

inline constexpr std::size_t largest = 1 << 20; // bytes; those that are read here have a few hundred

using Owned = std::unique_ptr<void, decltype(&plist_free)>;

/// The dictionary in a file; null for a file that can't be read, is too large or holds anything else.
Owned readDictionary(const std::string& path);
/// Absent for a value of another type, and for none.
std::optional<std::string> string(plist_t node);
/// Empty for what is no array.
std::vector<plist_t> items(plist_t node);

} // namespace PropertyList

} // namespace kelvadrome
