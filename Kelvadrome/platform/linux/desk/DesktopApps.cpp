#include "Kelvadrome/platform/linux/desk/DesktopApps.h"

#include "Kelvadrome/platform/linux/desk/XDisplay.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace kelvadrome {

namespace {

struct Known {
    std::string_view bundleId;
    std::array<std::string_view, 4> classes; // of its windows here, in lower case
};

constexpr std::array known{
    Known{"com.microsoft.edgemac",
        {"microsoft-edge", "microsoft-edge-stable", "microsoft-edge-beta", "microsoft-edge-dev"}},
};

/// An application that isn't known by another name goes by its id.
bool matches(const std::string& bundleId, std::string_view windowClass) {
    const auto lower = Text::lowercased(windowClass);
    const auto entry = std::ranges::find(known, std::string_view(bundleId), &Known::bundleId);
    return entry == known.end() ? lower == Text::lowercased(bundleId)
                                : std::ranges::find(entry->classes, lower) != entry->classes.end();
}

constexpr std::uint32_t classLimit = 1024; // bytes

/// The second of the two words that the property holds, each with a zero after it; the first names the
/// instance.
std::string secondWord(std::string_view both) {
    const auto end = both.find('\0');
    if (end == both.npos)
        return {};
    const auto rest = both.substr(end + 1);
    return std::string(rest.substr(0, rest.find('\0')));
}

/// The application's windows, the oldest first.
std::vector<xcb_window_t> windowsOf(XDisplay& display, const std::string& bundleId) {
    const auto all = display.oldestFirst();
    std::vector<xcb_get_property_cookie_t> asked; // all at once, so that it is one round trip
    for (const auto window : all)
        asked.push_back(display.ask(window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, classLimit));
    std::vector<xcb_window_t> found;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (matches(bundleId, secondWord(display.text(asked[i]))))
            found.push_back(all[i]);
    }
    return found;
}

/// Of the windows of the first one's process, the one nearest to the front.
xcb_window_t foremost(XDisplay& display, const std::vector<xcb_window_t>& windows) {
    const auto instance = display.pid(windows.front());
    const auto stacked = display.lowestFirst();
    for (auto it = stacked.rbegin(); it != stacked.rend(); ++it) {
        if (std::ranges::find(windows, *it) != windows.end() && (display.pid(*it) == instance))
            return *it;
    }
    return windows.front();
}

} // namespace

DesktopApps::DesktopApps() = default;
DesktopApps::~DesktopApps() = default;

bool DesktopApps::isRunning(const std::string& bundleId) {
    auto* const display = XDisplay::connected(display_);
    return display && !windowsOf(*display, bundleId).empty();
}

void DesktopApps::activate(const std::string& bundleId) {
    auto* const display = XDisplay::connected(display_);
    if (!display)
        return;
    const auto windows = windowsOf(*display, bundleId);
    if (!windows.empty())
        display->bringForward(foremost(*display, windows));
}

} // namespace kelvadrome
