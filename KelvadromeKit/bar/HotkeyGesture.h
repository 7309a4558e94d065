#pragma once

#include <optional>
#include <vector>

namespace kelvadrome {

/// Tells a tap of the global key, which toggles the bar, from a hold, which talks. A value without a clock:
/// times are seconds of uptime.
struct HotkeyGesture {
    static constexpr double holdThreshold = 0.35; // seconds

    enum class Effect { openBar, closeBar, startTalk, stopTalk };
    using Effects = std::vector<Effect>;

    std::optional<double> downAt; // the time of the press
    bool barWasOpen = false;      // at the press
    bool holdCapable = false;     // the voice route can record on a hold
    bool talking = false;

    /// The bar opens at the press, so that it is there for the hold as for the tap. A repeat does nothing.
    Effects keyDown(double at, bool barOpen, bool capable);
    Effects tick(double at);
    Effects keyUp(double at);

    bool operator==(const HotkeyGesture&) const = default;
};

} // namespace kelvadrome
