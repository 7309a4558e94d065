#pragma once

#include "Kelvadrome/platform/linux/session/SessionBus.h"
#include "KelvadromeKit/capture/ScreenCapture.h"
#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Clock.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

class XDisplay;

/// Carries out the commands of ScreenCaptureCommand with what this machine has. On X11 that is maim; on
/// Wayland, where a region is all that can be taken, grim and slurp, or the Screenshot portal where the
/// compositor doesn't let those. No tool gets the path: what it prints becomes a new file there, for its
/// owner alone, so that nothing planted at the path is followed or written over. Main thread, in its main
/// context.
class CaptureTools final : public CaptureCommandRunning {
public:
    static constexpr double windowLimit = 10; // seconds
    static constexpr double dragLimit = 120;

    struct Able {
        bool window = false, region = false;
        bool operator==(const Able&) const = default;
    };

    /// The pool outlives this.
    CaptureTools(BackgroundPool& pool, std::shared_ptr<SessionBus> bus, std::shared_ptr<Clock> clock,
        std::map<std::string, std::string> environment);
    ~CaptureTools() override;
    CaptureTools(const CaptureTools&) = delete;
    CaptureTools& operator=(const CaptureTools&) = delete;

    /// What can work here. Whether there is a portal is known a moment after this was made.
    Able available() const;

    /// 0 and a file at the path, or another status and none: the tool's own, or -1 when there is no tool, it
    /// could not be started or was ended at its limit. A picture that was taken but could not be kept leaves
    /// an empty file with -1. Cancelling the caller ends the tool.
    Task<std::int32_t> run(std::vector<std::string> argv) override;

private:
    BackgroundPool& pool_;
    const std::shared_ptr<SessionBus> bus_;
    const std::shared_ptr<Clock> clock_;
    const std::shared_ptr<const std::map<std::string, std::string>> environment_;
    const std::shared_ptr<bool> portal_ = std::make_shared<bool>(); // whether one takes pictures
};

/// Nothing on Linux asks beforehand: an X server shows its screen to every program, and a Wayland portal asks
/// the user by itself at each picture.
class SystemScreenPermission final : public ScreenPermission {
public:
    SystemScreenPermission();
    ~SystemScreenPermission() override;
    SystemScreenPermission(const SystemScreenPermission&) = delete;
    SystemScreenPermission& operator=(const SystemScreenPermission&) = delete;

    /// On X11, while a display answers.
    bool granted() override;
    void request() override {}

private:
    std::unique_ptr<XDisplay> display_;
};

} // namespace kelvadrome
