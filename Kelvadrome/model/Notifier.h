#pragma once

#include "Kelvadrome/model/NotificationCenter.h"
#include "Kelvadrome/model/Notifying.h"

#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// One notification for the new high-risk stops, through whichever centre the system has.
class Notifier final : public Notifying, public std::enable_shared_from_this<Notifier> {
public:
    static constexpr const char* actionIdentifier = "kelvadrome.open";
    static constexpr const char* actionTitle = "Open kelvadrome";
    static constexpr const char* categoryIdentifier = "kelvadrome.stop";
    static constexpr const char* threadIdentifier = "stops";

    /// `executor` is the main one.
    Notifier(Executor executor, std::shared_ptr<NotificationCenter> center);

    Task<> setUp(bool enabled, std::function<void(bool)> report) override;
    Task<std::string> postStop(std::int64_t count) override;
    void withdraw(std::string notification) override { center_->withdraw(notification); }
    /// Whether the user allows notifications, as far as is known.
    bool enabled() const { return enabled_; }

private:
    Task<> ask();
    static Task<> askAgain(std::weak_ptr<Notifier> weak);

    Executor executor_;
    std::shared_ptr<NotificationCenter> center_;
    std::function<void(bool)> report_;
    std::optional<bool> reported_;
    bool asking_ = false;
    bool asksOnceMore_ = false; // what is being answered may be out of date
    bool enabled_ = false;
};

} // namespace kelvadrome
