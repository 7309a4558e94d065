#pragma once

#include "KelvadromeKit/bar/HotkeySpec.h"
#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace kelvadrome {

/// The statuses of a failure that mean the same at every end. Others are the system's own.
namespace HotkeyStatus {

inline constexpr std::int32_t refusedByUser = 1; // whom the desktop's portal asked
inline constexpr std::int32_t noPortal = -1;     // or none that offers keys
inline constexpr std::int32_t silentPortal = -2; // which gave no answer up to the limit
inline constexpr std::int32_t replaced = -3; // by a key that was registered meanwhile, or the end of it all
inline constexpr std::int32_t noDisplay = -4;
inline constexpr std::int32_t noSuchKey = -5; // on this keyboard
inline constexpr std::int32_t takenBack = -6; // by the portal, after it had given the key

} // namespace HotkeyStatus

/// What became of a registration.
struct HotkeyOutcome {
    enum class Kind { failed, registered, taken };

    Kind kind = Kind::failed;
    std::int32_t status = 0; // of `failed`: one of HotkeyStatus, or the system's

    static HotkeyOutcome failed(std::int32_t status) { return {Kind::failed, status}; }
    static HotkeyOutcome registered() { return {Kind::registered}; }
    /// Another application holds the key.
    static HotkeyOutcome taken() { return {Kind::taken}; }

    bool operator==(const HotkeyOutcome&) const = default;
};

/// One key that reaches this program wherever the focus is. Main executor. The callbacks come there too, a
/// press and a release for each time the key goes down, however often the keyboard repeats it. Each of them
/// may register another key or end this object.
class GlobalHotkey {
public:
    virtual ~GlobalHotkey() = default;

    std::function<void()> onPress;
    std::function<void()> onRelease;
    /// Comes before `onPress`, where the desktop gives what lets a window take the focus.
    std::function<void(std::string)> onActivationToken;
    /// How the registered key stands from now on: lost, or got again by itself.
    std::function<void(HotkeyOutcome)> onChange;
    /// What gives out keys has come back, and no key is registered: it is worth asking again.
    std::function<void()> onReturn;

    /// Takes this key in place of the one of before, which is given up whatever follows. Never throws.
    virtual Task<HotkeyOutcome> registerKey(HotkeySpec spec) = 0;
    /// The key that is registered now.
    virtual std::optional<HotkeySpec> current() const = 0;

protected:
    /// By a copy, since the callback may end what holds it.
    template <class... Arguments>
    static void tell(
        std::function<void(Arguments...)> callback, std::type_identity_t<Arguments>... arguments) {
        if (callback)
            callback(std::move(arguments)...);
    }
};

} // namespace kelvadrome
