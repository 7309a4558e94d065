#pragma once

#include "KelvadromeKit/capture/FrontWindow.h"

#include <memory>
#include <vector>

namespace kelvadrome {

class XDisplay;

/// The windows on an X display, as its window manager lists them. On Wayland, which tells nobody, and without
/// a display there are none. Follows a server that is started anew. Main thread; a call is a few round trips
/// to the server of this machine.
class DesktopWindows final : public WindowListing {
public:
    DesktopWindows();
    ~DesktopWindows() override;
    DesktopWindows(const DesktopWindows&) = delete;
    DesktopWindows& operator=(const DesktopWindows&) = delete;

    /// `owner` as FrontApplication has it.
    std::optional<std::uint32_t> frontWindow(std::optional<std::int32_t> owner) override;

    /// From front to back. What isn't an application's ordinary window is in a layer above 0.
    std::vector<WindowInfo> windows();
    /// Absent while no window has the focus.
    std::optional<FrontApplication> frontApplication();
    /// Gives it the focus back. `serverTime` is that of the user's press, in X's milliseconds, where known: a
    /// window manager may refuse what is older than the user's last one. Nothing happens when the window is
    /// gone or the display has been started anew.
    void activate(const FrontApplication& application, std::uint32_t serverTime = 0);

private:
    std::unique_ptr<XDisplay> display_;
};

} // namespace kelvadrome
