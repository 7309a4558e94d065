#pragma once

#include "Kelvadrome/model/Notifying.h"
#include "KelvadromeKit/support/Task.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

struct NotificationRequest {
    std::string identifier = {}; // of this request alone
    std::string title = {};
    std::string body = {};
    std::string category = {};
    std::string thread = {};
};

/// The system's notification centre. Main executor, unless said otherwise.
class NotificationCenter {
public:
    struct Action {
        std::string identifier;
        std::string title; // a press brings the application to the front
    };
    struct Category {
        std::string identifier;
        std::vector<Action> actions;
    };

    virtual ~NotificationCenter() = default;

    /// False where the centre would refuse this process whatever the user says.
    virtual bool acceptsThisProcess() = 0;
    /// `opened` is called, on any thread, when the user opens a notification. One that arrives while the
    /// application is in front is shown all the same.
    virtual void setOpened(std::function<void()> opened) = 0;
    virtual void registerCategory(Category category) = 0;
    /// Whether alerts, sounds and badges may be shown; may ask the user. May throw.
    virtual Task<bool> requestAuthorization() = 0;
    /// `changed` is called on the main executor when the answer to that may have become another one.
    virtual void setAuthorizationChanged(std::function<void()> changed) { (void)changed; }
    /// Shows a notification at once, with the default sound and of active urgency. May throw.
    virtual Task<> add(NotificationRequest request) = 0;
    /// Takes back what was added under this identifier; one that is under way isn't left standing either.
    virtual void withdraw(const std::string& identifier) { (void)identifier; }
};

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
    bool again_ = false; // what is being answered may be out of date
    bool enabled_ = false;
};

} // namespace kelvadrome
