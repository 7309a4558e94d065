#include "KelvadromeKit/capture/ShotID.h"

#include "KelvadromeKit/support/ISO8601.h"
#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>
#include <sodium.h>

#include <stdexcept>

namespace kelvadrome::ShotID {

std::string make(WallTime now, const std::function<std::uint32_t()>& random) {
    // "2026-01-01T12:00:00Z" without its dashes and colons.
    auto stamp = Text::replaceAll(formatISO8601(now), "-", "");
    std::string id = "shot-" + Text::replaceAll(stamp, ":", "") + "-";
    for (int i = 0; i < 6; ++i)
        id.push_back(alphabet[random() % alphabet.size()]);
    return id;
}

std::string make(WallTime now) {
    if (sodium_init() < 0)
        throw std::runtime_error("libsodium could not be initialised");
    return make(now, [] { return randombytes_random(); });
}

bool isValid(std::string_view text) {
    static const RE2 pattern("shot-[0-9]{8}T[0-9]{6}Z-[a-z0-9]{6}");
    return RE2::FullMatch(text, pattern);
}

} // namespace kelvadrome::ShotID
