#pragma once

#include <cstdlib>

namespace kelvadrome::fuzz {

/// What must hold whatever the input; a fuzzer counts the abort as a find.
inline void require(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace kelvadrome::fuzz
