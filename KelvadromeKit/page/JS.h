#pragma once

#include <string>
#include <string_view>

/// Every piece of data pasted into a script passes through here.
namespace kelvadrome::JS {

/// A double-quoted JavaScript string literal; an empty one for text that isn't valid UTF-8.
std::string string(std::string_view text);

} // namespace kelvadrome::JS
