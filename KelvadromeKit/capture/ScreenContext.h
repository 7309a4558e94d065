#pragma once

#include "KelvadromeKit/capture/ShotFolder.h"

#include <functional>
#include <memory>

namespace kelvadrome {

/// Takes screenshots into a data home and deletes them by their rules. Main executor; held by shared_ptr,
/// since a capture may outlive its caller.
class ScreenContext : public std::enable_shared_from_this<ScreenContext> {
public:
    static constexpr int maxShots = 3; // of one request
    static constexpr std::int64_t maxBytes = 25 * 1024 * 1024;
    static constexpr int keepDays = 7;

    struct Parts {
        ShotFolder folder;
        std::shared_ptr<ScreenPermission> permission;
        std::shared_ptr<CaptureCommandRunning> runner;
        std::function<WallTime()> now;
    };

    explicit ScreenContext(Parts parts) : with_(std::move(parts)) {}

    /// Takes one picture, unless `attached` are as many as a request may have. Never throws.
    Task<CaptureOutcome> capture(CaptureTarget target, std::size_t attached);
    /// Removes the shots that are older; gives how many.
    int prune(int days);
    /// Removes one shot; failures are silent.
    void discard(const CapturedShot& shot);

    const ShotFolder& folder() const { return with_.folder; }
    bool askedPermission() const { return askedPermission_; }

private:
    CaptureOutcome judge(const std::string& id, bool region, std::int32_t status);

    Parts with_;
    bool askedPermission_ = false; // the system's question comes once in a run
};

} // namespace kelvadrome
