#pragma once

#include "Kelvadrome/platform/linux/session/SessionBus.h"

#include "tests/support/TestLoop.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

namespace kelvadrome::test {

/// A session bus of the test's own. Everything on it, peers included, runs in the main context of this
/// thread.
class PrivateBus : public testing::Test {
protected:
    PrivateBus() { start(); }
    ~PrivateBus() override { stop(); }

    void start(const std::string& services = {}) {
        stop();
        daemon_ = g_test_dbus_new(G_TEST_DBUS_NONE);
        if (!services.empty())
            g_test_dbus_add_service_dir(daemon_, services.c_str());
        g_test_dbus_up(daemon_);
        bus = connect();
    }

    void stop() {
        if (!daemon_)
            return;
        g_test_dbus_stop(daemon_);
        g_object_unref(std::exchange(daemon_, nullptr));
    }

    OwnedObject<GDBusConnection> connection() {
        const auto flags = static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        return OwnedObject<GDBusConnection>(g_dbus_connection_new_for_address_sync(
            g_test_dbus_get_bus_address(daemon_), flags, nullptr, nullptr, nullptr));
    }
    std::shared_ptr<SessionBus> connect() { return std::make_shared<SessionBus>(connection()); }

    void waitFor(const std::function<bool()>& condition, const std::string& what) {
        const OwnedTick tick(g_timeout_source_new(10)); // for what no message tells of
        g_source_set_callback(
            tick.get(), [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
        g_source_attach(tick.get(), nullptr);
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(TestLoop::limit);
        for (loop.drain(); !condition(); loop.drain()) {
            if (std::chrono::steady_clock::now() >= deadline)
                throw std::runtime_error("waited in vain for " + what);
            g_main_context_iteration(nullptr, TRUE);
        }
    }

    template <class T>
    Outcome<T> run(Task<T> task) {
        Outcome<T> outcome;
        bool ended = false;
        asio::co_spawn(loop.executor(), attempt(std::move(task)), [&](std::exception_ptr, Outcome<T> result) {
            outcome = std::move(result);
            ended = true;
        });
        waitFor([&] { return ended; }, "a task to end");
        return outcome;
    }

    /// What a peer answers; absent when it refuses.
    std::shared_ptr<GVariant> ask(SessionBus& from, const SessionBus::Peer& peer, const char* method,
        GVariant* arguments, const char* type) {
        std::shared_ptr<GVariant> answer;
        bool answered = false;
        from.call(peer, method, arguments, type, replyOwner_, [&](GVariant* value) {
            answered = true;
            if (value)
                answer = std::shared_ptr<GVariant>(g_variant_ref(value), &g_variant_unref);
        });
        waitFor([&] { return answered; }, std::string("an answer to ") + method);
        return answer;
    }

    /// When it returns, all that `from` sent so far has reached `to`.
    void settle(SessionBus& from, SessionBus& to) {
        for (auto* const side : {&from, &to})
            ask(*side, busPeer, "GetId", nullptr, "(s)");
    }

    static std::string print(GVariant* value) {
        const OwnedText text(g_variant_print(value, FALSE));
        return text.get();
    }

    static constexpr SessionBus::Peer busPeer{
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};

    TestLoop loop;
    std::shared_ptr<SessionBus> bus; // of what is tested

private:
    using OwnedTick = std::unique_ptr<GSource, decltype([](GSource* source) {
        g_source_destroy(source);
        g_source_unref(source);
    })>;

    GTestDBus* daemon_ = nullptr;
    std::shared_ptr<void> replyOwner_ = std::make_shared<bool>();
};

/// Another process on the bus, which has the name as long as this lives.
class FakePeer {
public:
    explicit FakePeer(OwnedObject<GDBusConnection> connection)
        : connection_(connection.get()), bus(std::move(connection)) {}
    FakePeer(OwnedObject<GDBusConnection> connection, const char* name) : FakePeer(std::move(connection)) {
        own(name);
    }
    /// Who serves something does that first: whoever waits for the name calls at once.
    void own(const char* name) const {
        const OwnedVariant owned(g_dbus_connection_call_sync(connection_, "org.freedesktop.DBus", "/",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", name, 0U), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        EXPECT_NE(owned, nullptr);
    }
    ~FakePeer() {
        served.cancel();
        g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    }
    FakePeer(const FakePeer&) = delete;
    FakePeer& operator=(const FakePeer&) = delete;

    /// From now on it answers nothing.
    void hang() {
        g_dbus_connection_add_filter(
            connection_,
            [](GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer) -> GDBusMessage* {
                if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
                    return message;
                g_object_unref(message);
                return nullptr;
            },
            nullptr, nullptr);
    }

    /// For what SessionBus doesn't hand over; for as long as this lives.
    void serveRaw(const char* path, const char* xml, const GDBusInterfaceVTable& table, gpointer data) const {
        const std::unique_ptr<GDBusNodeInfo, GLibRelease<g_dbus_node_info_unref>> node(
            g_dbus_node_info_new_for_xml(xml, nullptr));
        g_dbus_connection_register_object(
            connection_, path, node->interfaces[0], &table, data, nullptr, nullptr);
    }

private:
    GDBusConnection* connection_;

public:
    SessionBus bus;
    Subscription served;
};

} // namespace kelvadrome::test
