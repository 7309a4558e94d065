#pragma once

#include "Kelvadrome/model/RunningApps.h"

#include <memory>

namespace kelvadrome {

class XDisplay;

/// Other applications by the windows that they have on an X display: their class says what they are, their
/// pid which instance they belong to. On Wayland, which tells nobody, and without a display nothing runs.
/// Follows a server that is started anew. Main thread; a call is a few round trips to the server of this
/// machine.
class DesktopApps final : public RunningApps {
public:
    DesktopApps();
    ~DesktopApps() override;
    DesktopApps(const DesktopApps&) = delete;
    DesktopApps& operator=(const DesktopApps&) = delete;

    bool isRunning(const std::string& bundleId) override;
    /// Of several windows, the one that was in front last.
    void activate(const std::string& bundleId) override;

private:
    std::unique_ptr<XDisplay> display_;
};

} // namespace kelvadrome
