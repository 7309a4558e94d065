#include "KelvadromeKit/page/PageKey.h"

#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <sodium.h>

#include <array>

namespace kelvadrome::PageKey {

namespace {

constexpr std::size_t keyCharacters = 43;

} // namespace

std::string account(std::string_view home) {
    std::array<unsigned char, crypto_hash_sha256_BYTES> digest{};
    crypto_hash_sha256(digest.data(), reinterpret_cast<const unsigned char*>(home.data()), home.size());
    std::string text = "root-";
    for (std::size_t i = 0; i < 8; ++i)
        text += fmt::format("{:02x}", digest[i]);
    return text;
}

std::string generate() {
    if (sodium_init() < 0)
        throw SecretStoreError(-1, "random");
    std::array<unsigned char, 32> bytes{};
    randombytes_buf(bytes.data(), bytes.size());
    std::string key(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_URLSAFE_NO_PADDING), '\0');
    sodium_bin2base64(
        key.data(), key.size(), bytes.data(), bytes.size(), sodium_base64_VARIANT_URLSAFE_NO_PADDING);
    sodium_memzero(bytes.data(), bytes.size());
    key.resize(keyCharacters);
    return key;
}

std::optional<std::string> stored(SecretStore& store) {
    auto key = store.read();
    return key && Text::characterCount(*key) >= keyCharacters ? std::move(key) : std::nullopt;
}

std::string load(SecretStore& store) {
    if (auto known = stored(store))
        return std::move(*known);
    auto key = generate();
    store.set(key);
    return key;
}

} // namespace kelvadrome::PageKey
