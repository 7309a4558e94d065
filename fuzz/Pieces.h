#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kelvadrome::fuzz {

/// The input cut into pieces: its first byte says how long they are.
inline std::vector<std::string_view> pieces(const std::uint8_t* bytes, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(bytes), size);
    std::vector<std::string_view> cut;
    if (text.empty())
        return cut;
    const std::size_t length = static_cast<std::uint8_t>(text.front()) % 32 + 1;
    text.remove_prefix(1);
    for (; !text.empty(); text.remove_prefix(std::min(length, text.size())))
        cut.push_back(text.substr(0, length));
    return cut;
}

} // namespace kelvadrome::fuzz
