#pragma once

#include "KelvadromeKit/support/Task.h"

#include <optional>
#include <string>

namespace kelvadrome {

/// Opens URLs with one application. Main executor.
class URLOpening {
public:
    virtual ~URLOpening() = default;
    /// False when it couldn't be done within a limit. `bundle` is the application's folder, and no other
    /// program gets the URL; without `activates` the focus stays where it is. Never throws.
    virtual Task<bool> open(std::string url, std::string bundle, bool activates) = 0;
};

/// Reads which mode a dictation app is in. Main executor.
class ModeKeyReading {
public:
    virtual ~ModeKeyReading() = default;
    /// Absent when it can't be told, or is no plain name (DictationURL::validFill). Never throws.
    virtual Task<std::optional<std::string>> active() = 0;
};

} // namespace kelvadrome
