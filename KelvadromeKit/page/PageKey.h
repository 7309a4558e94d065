#pragma once

#include "KelvadromeKit/page/SecretStore.h"

#include <optional>
#include <string>
#include <string_view>

/// The secret of this installation that proves to the daemon who asks for its page.
namespace kelvadrome::PageKey {

inline constexpr std::string_view header = "x-kd-page-key";
inline constexpr std::string_view service = "com.kelvadrome.mac.pagekey";
inline constexpr std::string_view label = "kelvadrome page key";

/// "root-" and 16 hexadecimal digits: one account a data home, so that two homes on a machine have two keys.
std::string account(std::string_view home);
/// 32 random bytes in URL-safe base64 without padding: 43 characters.
std::string generate();
/// The stored key; absent when there is none or a shorter one. Throws SecretStoreError. Blocks.
std::optional<std::string> stored(SecretStore& store);
/// The stored key, or a new one stored in its place. Throws SecretStoreError. Blocks.
std::string load(SecretStore& store);

} // namespace kelvadrome::PageKey
