#pragma once

#include "KelvadromeKit/support/Task.h"

#include <functional>
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

} // namespace kelvadrome
