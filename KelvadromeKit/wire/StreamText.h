#pragma once

#include <string>
#include <string_view>

namespace kelvadrome {

/// Turns the bytes of an event stream into text that never ends inside a character. Bad bytes become U+FFFD
/// and stop nothing.
class StreamText {
public:
    /// The text that this piece, after what the last one left, makes available.
    std::string take(std::string_view bytes);

private:
    std::string carried_; // at most three bytes
};

} // namespace kelvadrome
