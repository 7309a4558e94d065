#pragma once

#include "KelvadromeKit/support/Task.h"

#include <optional>
#include <string>

namespace kelvadrome {

/// What the user copies and pastes. Main executor; never throws.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    /// Its text; absent when it holds none, or when who holds it doesn't hand it over in time.
    virtual Task<std::optional<std::string>> read() = 0;
    /// Puts a text there that is a secret: programs that keep what was copied are asked to leave it alone.
    virtual void writeSecret(std::string text) = 0;
    virtual void clear() = 0;
};

} // namespace kelvadrome
