#include "Kelvadrome/platform/linux/LogindLock.h"

#include "tests/support/TestLoop.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

namespace kelvadrome::test {
namespace {

/// A message bus of this test's own in the place of the system's, with a small logind on it.
class LogindLockTest : public testing::Test {
protected:
    LogindLockTest() : bus_(g_test_dbus_new(G_TEST_DBUS_NONE)) {
        g_test_dbus_up(bus_);
        address_ = g_test_dbus_get_bus_address(bus_);
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
    }
    ~LogindLockTest() override {
        if (connection_)
            g_object_unref(connection_);
        g_test_dbus_stop(bus_);
        g_object_unref(bus_);
    }

    void startLogind() {
        const auto flags = static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        connection_ =
            g_dbus_connection_new_for_address_sync(address_.c_str(), flags, nullptr, nullptr, nullptr);
        ASSERT_NE(connection_, nullptr);
        const char* xml = "<node><interface name='org.freedesktop.login1.Manager'><method name='GetSession'>"
                          "<arg type='s' direction='in'/><arg type='o' direction='out'/></method></interface>"
                          "<interface name='org.freedesktop.login1.Session'>"
                          "<property name='LockedHint' type='b' access='read'/></interface></node>";
        auto* node = g_dbus_node_info_new_for_xml(xml, nullptr);
        static const GDBusInterfaceVTable table{
            [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* arguments,
                GDBusMethodInvocation* call, gpointer self) {
                const char* name = nullptr;
                g_variant_get(arguments, "(&s)", &name);
                EXPECT_STREQ(name, "auto");
                ++static_cast<LogindLockTest*>(self)->asked;
                const auto& path = static_cast<LogindLockTest*>(self)->session;
                g_dbus_method_invocation_return_value(call, g_variant_new("(o)", path.c_str()));
            },
            [](GDBusConnection*, const char*, const char*, const char*, const char*, GError**,
                gpointer self) { return g_variant_new_boolean(static_cast<LogindLockTest*>(self)->locked); },
            nullptr, {}};
        const auto serve = [&](const char* path, int interface) {
            g_dbus_connection_register_object(
                connection_, path, node->interfaces[interface], &table, this, nullptr, nullptr);
        };
        serve("/org/freedesktop/login1", 0);
        serve("/session/one", 1);
        serve("/session/two", 1);
        g_dbus_node_info_unref(node);
        auto* reply = g_dbus_connection_call_sync(connection_, "org.freedesktop.DBus", "/",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.freedesktop.login1", 0U),
            nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        ASSERT_NE(reply, nullptr);
        g_variant_unref(reply);
    }

    void announce(const char* path, bool hint) {
        auto* changed =
            g_variant_new_parsed("{'LockedHint': <%b>, 'Other': <1>}", static_cast<gboolean>(hint));
        emit(path, "org.freedesktop.DBus.Properties", "PropertiesChanged",
            g_variant_new("(s@a{sv}as)", "org.freedesktop.login1.Session", changed, nullptr));
    }
    void emit(const char* path, const char* interface, const char* member, GVariant* parameters) {
        g_dbus_connection_emit_signal(connection_, nullptr, path, interface, member, parameters, nullptr);
    }

    /// Logind's side runs on the main context.
    void waitFor(const std::function<bool()>& condition, const std::string& what) {
        loop.until(
            [&] {
                while (g_main_context_iteration(nullptr, FALSE)) {
                }
                return condition();
            },
            what);
    }

    TestLoop loop;
    std::string session = "/session/one";
    bool locked = false;
    int asked = 0;

private:
    GTestDBus* bus_;
    std::string address_;
    GDBusConnection* connection_ = nullptr;
};

TEST_F(LogindLockTest, theHintIsReadAtTheStartAndFollowed) {
    locked = true;
    startLogind();
    const LogindLock lock;
    waitFor([&] { return lock.screenLocked(); }, "the hint of the start");
    announce("/session/one", false);
    waitFor([&] { return !lock.screenLocked(); }, "unlocking");
    announce("/session/two", true); // somebody else's
    announce("/session/one", true);
    waitFor([&] { return lock.screenLocked(); }, "locking");

    session = "/session/two";
    locked = false;
    emit("/org/freedesktop/login1", "org.freedesktop.login1.Manager", "SessionNew",
        g_variant_new("(so)", "2", "/session/two"));
    waitFor([&] { return !lock.screenLocked(); }, "the new session's hint");
    announce("/session/two", true);
    waitFor([&] { return lock.screenLocked(); }, "the new session's lock");
}

TEST_F(LogindLockTest, anotherUsersSessionIsNotListenedTo) {
    startLogind();
    const LogindLock lock;
    waitFor([&] { return asked == 1; }, "the session to be asked for");
    announce("/session/two", true);
    emit("/org/freedesktop/login1", "org.freedesktop.login1.Manager", "SessionRemoved",
        g_variant_new("(so)", "9", "/session/nine"));
    waitFor([&] { return asked == 2; }, "the signal after it to be seen");
    EXPECT_FALSE(lock.screenLocked());
}

TEST_F(LogindLockTest, withoutLogindOrABusTheScreenReadsAsUnlockedAndNothingHangs) {
    {
        const LogindLock lock;
        EXPECT_FALSE(lock.screenLocked());
    }
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    const LogindLock lock;
    EXPECT_FALSE(lock.screenLocked());
}

} // namespace
} // namespace kelvadrome::test
