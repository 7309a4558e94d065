#pragma once

#include <cstddef>

namespace kelvadrome::test {

/// A number for all that the display shows: another one when anything is drawn otherwise. 0 when it can't be
/// looked at.
std::size_t screenPicture();

} // namespace kelvadrome::test
