#include "Kelvadrome/platform/linux/core/SecretServiceStore.h"
#include "Kelvadrome/platform/linux/session/LogindLock.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/bus/PrivateBus.h"

#include <cstdlib>
#include <filesystem>

namespace kelvadrome::test {
namespace {

class MachineSecretStoreTest : public PrivateBus {
protected:
    MachineSecretStoreTest() {
        ::setenv("XDG_DATA_HOME", data.path().c_str(), 1);
        ::unsetenv("WAYLAND_DISPLAY"); // the private bus hides the other kind of display
    }
    ~MachineSecretStoreTest() override { ::unsetenv("XDG_DATA_HOME"); }

    const TemporaryFolder data;
    MachineSecretStore store{"service", "account", "label"};
};

TEST_F(MachineSecretStoreTest, withoutAKeyringThatAnswersTheSecretGoesToThePrivateFile) {
    using State = SecretServiceStore::State;
    EXPECT_EQ(SecretServiceStore::state(), State::absent);
    store.set("secret");
    const auto folder = data / "kelvadrome/secrets";
    EXPECT_TRUE(std::filesystem::exists(folder + "/service.account"));
    EXPECT_NE(store.whereabouts().find(folder), std::string::npos);

    FakePeer keyring(connection(), "org.freedesktop.secrets");
    keyring.hang();
    EXPECT_EQ(SecretServiceStore::state(0.2), State::absent);
    // A secret that lies in the file is read from there, and the keyring isn't even asked.
    EXPECT_EQ(MachineSecretStore("service", "account", "label").read(), "secret");

    // The bus may go away without taking this process along.
    stop();
    loop.drain();
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_EQ(SecretServiceStore::state(), State::absent);
    store.remove();
    EXPECT_FALSE(store.exists());
}

/// The private bus in the place of the system's, with a small logind on it.
class LogindLockTest : public PrivateBus {
protected:
    LogindLockTest() { ::setenv("DBUS_SYSTEM_BUS_ADDRESS", std::getenv("DBUS_SESSION_BUS_ADDRESS"), 1); }
    ~LogindLockTest() override { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

    void startLogind() {
        logind = std::make_unique<FakePeer>(connection(), "org.freedesktop.login1");
        logind->served = logind->bus.serve("/org/freedesktop/login1",
            "<node><interface name='org.freedesktop.login1.Manager'><method name='GetSession'>"
            "<arg type='s' direction='in'/><arg type='o' direction='out'/></method></interface></node>",
            {.call = [this](const std::string&, GVariant* arguments) {
                EXPECT_EQ(print(arguments), "('auto',)");
                ++asked;
                return g_variant_new("(o)", session.c_str());
            }});
        for (const char* path : {"/session/one", "/session/two"}) {
            hints.push_back(logind->bus.serve(path,
                "<node><interface name='org.freedesktop.login1.Session'>"
                "<property name='LockedHint' type='b' access='read'/></interface></node>",
                {.property = [this, path](
                                 const std::string&) { return g_variant_new_boolean(locked[path]); }}));
        }
    }
    void setLocked(const char* path, bool hint) {
        locked[path] = hint;
        auto* changed = g_variant_new_parsed("{'LockedHint': <%b>, 'Other': <1>}", gboolean(hint));
        logind->bus.emit(path, "org.freedesktop.DBus.Properties", "PropertiesChanged",
            g_variant_new("(s@a{sv}as)", "org.freedesktop.login1.Session", changed, nullptr));
    }
    void announceSession(const char* signal, const char* path) {
        logind->bus.emit("/org/freedesktop/login1", "org.freedesktop.login1.Manager", signal,
            g_variant_new("(so)", "9", path));
    }

    std::unique_ptr<FakePeer> logind;
    std::vector<Subscription> hints;
    std::string session = "/session/one";
    std::map<std::string, bool> locked;
    int asked = 0;
};

TEST_F(LogindLockTest, theHintOfTheUsersOwnSessionIsReadAtTheStartAndFollowed) {
    locked["/session/one"] = true;
    startLogind();
    const LogindLock lock;
    waitFor([&] { return lock.screenLocked(); }, "the hint of the start");
    setLocked("/session/one", false);
    waitFor([&] { return !lock.screenLocked(); }, "unlocking");

    setLocked("/session/two", true); // somebody else's
    announceSession("SessionRemoved", "/session/nine");
    waitFor([&] { return asked == 2; }, "the signal after it to be seen");
    EXPECT_FALSE(lock.screenLocked());
    setLocked("/session/one", true);
    waitFor([&] { return lock.screenLocked(); }, "locking");

    session = "/session/two";
    setLocked("/session/two", false);
    announceSession("SessionNew", "/session/two");
    waitFor([&] { return !lock.screenLocked(); }, "the new session's hint");
    setLocked("/session/two", true);
    waitFor([&] { return lock.screenLocked(); }, "the new session's lock");
}

TEST_F(LogindLockTest, withoutLogindOrABusTheScreenReadsAsUnlockedAndNothingHangs) {
    EXPECT_FALSE(LogindLock().screenLocked());
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    EXPECT_FALSE(LogindLock().screenLocked());
}

} // namespace
} // namespace kelvadrome::test
