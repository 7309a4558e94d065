#pragma once

#include "tests/support/bus/PrivateBus.h"

namespace kelvadrome::test {

/// A notification server that keeps what it was told and presses what the test wants pressed.
class FakeNotificationServer : public FakePeer {
public:
    static constexpr const char* serverName = "org.freedesktop.Notifications";
    static constexpr const char* serverPath = "/org/freedesktop/Notifications";

    FakeNotificationServer(OwnedObject<GDBusConnection> connection, std::vector<const char*> capabilities)
        : FakePeer(std::move(connection)), capabilities_(std::move(capabilities)) {
        served = bus.serve(serverPath,
            "<node><interface name='org.freedesktop.Notifications'><method name='GetCapabilities'>"
            "<arg type='as' direction='out'/></method><method name='CloseNotification'>"
            "<arg type='u' direction='in'/></method><method name='Notify'><arg type='s' direction='in'/>"
            "<arg type='u' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='in'/>"
            "<arg type='s' direction='in'/><arg type='as' direction='in'/><arg type='a{sv}' direction='in'/>"
            "<arg type='i' direction='in'/><arg type='u' direction='out'/></method></interface></node>",
            {.call = [this](const std::string& method, GVariant* arguments) {
                return answer(method, arguments);
            }});
        own(serverName);
    }
    void invoke(std::uint32_t id, const char* action, const char* token = nullptr) {
        if (token)
            bus.emit(serverPath, serverName, "ActivationToken", g_variant_new("(us)", id, token));
        bus.emit(serverPath, serverName, "ActionInvoked", g_variant_new("(us)", id, action));
    }
    void close(std::uint32_t id) {
        bus.emit(serverPath, serverName, "NotificationClosed", g_variant_new("(uu)", id, 2U));
    }

    std::vector<std::string> notified; // what each Notify said, as text
    std::vector<std::uint32_t> replaced;
    std::vector<std::uint32_t> closed;
    std::function<void()> beforeReply;

private:
    GVariant* answer(const std::string& method, GVariant* arguments) {
        if (method == "GetCapabilities")
            return g_variant_new(
                "(@as)", g_variant_new_strv(capabilities_.data(), gssize(capabilities_.size())));
        if (method == "CloseNotification") {
            g_variant_get(arguments, "(u)", &closed.emplace_back());
            return nullptr;
        }
        const OwnedText text(g_variant_print(arguments, FALSE));
        notified.emplace_back(text.get());
        g_variant_get_child(arguments, 1, "u", &replaced.emplace_back());
        if (beforeReply)
            beforeReply();
        return g_variant_new("(u)", replaced.back() != 0 ? replaced.back() : ++count_);
    }

    std::vector<const char*> capabilities_;
    std::uint32_t count_ = 0;
};

} // namespace kelvadrome::test
