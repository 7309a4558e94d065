#pragma once

#include "Kelvadrome/platform/linux/session/SessionBus.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace kelvadrome {

/// The number on the application's icon in docks and task bars that know com.canonical.Unity.LauncherEntry. A
/// dock that starts later is told as well; the number goes with this object. Main thread.
class LauncherBadge {
public:
    explicit LauncherBadge(std::shared_ptr<SessionBus> bus);
    ~LauncherBadge();
    LauncherBadge(const LauncherBadge&) = delete;
    LauncherBadge& operator=(const LauncherBadge&) = delete;

    /// Absent takes it away.
    void set(std::optional<std::int64_t> count);

private:
    GVariant* update() const;
    void announce();

    std::shared_ptr<SessionBus> bus_;
    std::optional<std::int64_t> count_;
    Subscription served_;
    Subscription docks_;
};

} // namespace kelvadrome
