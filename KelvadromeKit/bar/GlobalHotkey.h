#pragma once

#include "KelvadromeKit/bar/HotkeySpec.h"
#include "KelvadromeKit/support/Task.h"

#include <functional>

namespace kelvadrome {

/// What became of a registration.
struct HotkeyOutcome {
    enum class Kind { failed, registered, taken };

    Kind kind = Kind::failed;
    std::int32_t status = 0; // the system's, of `failed`

    static HotkeyOutcome failed(std::int32_t status) { return {Kind::failed, status}; }
    static HotkeyOutcome registered() { return {Kind::registered}; }
    /// Another application holds the key.
    static HotkeyOutcome taken() { return {Kind::taken}; }

    bool operator==(const HotkeyOutcome&) const = default;
};

/// One key that reaches this program wherever the focus is. Main executor. The callbacks come there too, a
/// press and a release for each time the key goes down, however often the keyboard repeats it.
class GlobalHotkey {
public:
    virtual ~GlobalHotkey() = default;

    std::function<void()> onPress;
    std::function<void()> onRelease;

    /// Takes this key in place of the one of before, which is given up whatever follows. Never throws.
    virtual Task<HotkeyOutcome> registerKey(HotkeySpec spec) = 0;
    /// The key that is registered now.
    virtual std::optional<HotkeySpec> current() const = 0;
};

} // namespace kelvadrome
