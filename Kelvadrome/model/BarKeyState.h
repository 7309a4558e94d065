#pragma once

#include "KelvadromeKit/bar/GlobalHotkey.h"

#include <optional>
#include <string>

namespace kelvadrome {

/// The command bar's key, and what became of its registration: what the settings tell of it.
struct BarKeyState {
    std::string label;                    // "Control Option B"
    std::optional<HotkeyOutcome> outcome; // absent until the system has answered

    bool operator==(const BarKeyState&) const = default;
};

} // namespace kelvadrome
