#pragma once

#include "Kelvadrome/model/NotificationCenter.h"
#include "Kelvadrome/platform/linux/session/SessionBus.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace kelvadrome {

/// Notifications through org.freedesktop.Notifications. A press on the body opens as the button does, since
/// some servers show no buttons. Servers come and go; what an earlier one showed is forgotten with it.
/// Main thread.
class FreedesktopNotifications final : public NotificationCenter,
                                       public std::enable_shared_from_this<FreedesktopNotifications> {
public:
    static std::shared_ptr<FreedesktopNotifications> make(
        std::shared_ptr<SessionBus> bus, int limit = SessionBus::defaultLimit);

    /// False without a session bus.
    bool acceptsThisProcess() override;
    void setOpened(std::function<void()> opened) override { opened_ = std::move(opened); }
    void registerCategory(Category category) override;
    /// Whether a server answers, or could be started. Never throws.
    Task<bool> requestAuthorization() override;
    /// That is when a server appears or goes.
    void setAuthorizationChanged(std::function<void()> changed) override { changed_ = std::move(changed); }
    /// A request with the identifier of one that is shown replaces it. Throws when no server takes it.
    Task<> add(NotificationRequest request) override;

    void withdraw(const std::string& identifier) override;

    /// Called before `opened`, with what lets a window come to the front.
    std::function<void(std::string)> onActivationToken;

private:
    struct Posted {
        std::uint32_t id = 0; // 0 while the server hasn't taken it
        bool withdrawn = false;
        std::string activationToken = {};
    };
    using Capabilities = std::set<std::string>;

    FreedesktopNotifications(std::shared_ptr<SessionBus> bus, int limit);
    void listen();
    void serverChanged(const std::string& owner);
    void invoked(std::uint32_t id, const std::string& action);
    void taken(const std::string& identifier, GVariant* reply);
    bool knowsAction(const std::string& action) const;
    Task<std::optional<Capabilities>> capabilities(SessionBus::Start start);
    Task<bool> couldBeStarted();
    GVariant* arguments(
        const NotificationRequest& request, const Capabilities& server, std::uint32_t replaces) const;
    GVariant* actions(const NotificationRequest& request, const Capabilities& server) const;
    std::map<std::string, Posted>::iterator find(std::uint32_t id);
    Task<std::shared_ptr<GVariant>> ask(SessionBus::Peer peer, const char* method,
        std::shared_ptr<GVariant> arguments, const char* replyType, SessionBus::Start start);

    const std::shared_ptr<SessionBus> bus_;
    const int limit_; // milliseconds
    std::function<void()> opened_;
    std::function<void()> changed_;
    std::map<std::string, Category> categories_;
    std::map<std::string, Posted> posted_;     // by identifier
    std::string server_;                       // its connection; empty when there is none
    std::optional<Capabilities> capabilities_; // of that server
    std::vector<Subscription> listening_;
};

} // namespace kelvadrome
