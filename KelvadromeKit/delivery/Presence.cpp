#include "KelvadromeKit/delivery/Presence.h"

#include <fmt/format.h>
#include <sodium.h>

#include <array>

namespace kelvadrome::Presence {

std::string tag(std::string_view sessionId) {
    std::array<unsigned char, crypto_hash_sha256_BYTES> digest{};
    crypto_hash_sha256(
        digest.data(), reinterpret_cast<const unsigned char*>(sessionId.data()), sessionId.size());
    std::string tag;
    for (std::size_t i = 0; i < 16; ++i)
        tag += fmt::format("{:02x}", digest[i]);
    return tag;
}

} // namespace kelvadrome::Presence
