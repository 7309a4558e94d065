#pragma once

#include <string>

namespace kelvadrome {

/// 32 characters that nobody can guess (128 bits of the system's randomness), for what lives as long as this
/// process. Throws std::runtime_error when there is no randomness.
std::string randomName();

} // namespace kelvadrome
