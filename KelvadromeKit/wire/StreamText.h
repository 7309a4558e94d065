#pragma once

#include <string>
#include <string_view>

namespace kelvadrome {

/// Turns the bytes of an event stream into text that never ends inside a character. Bad bytes become U+FFFD
/// and stop nothing.
class StreamText {
public:
    /// The text that this piece, after what the last one left, makes available. It lies in `bytes` where it
    /// can, otherwise in this object: valid until the next call.
    std::string_view take(std::string_view bytes);

private:
    std::string carried_; // at most three bytes
    std::string text_;    // what couldn't be shown where it lay
};

} // namespace kelvadrome
