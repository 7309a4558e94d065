#include "Kelvadrome/platform/linux/FileSecretStore.h"
#include "Kelvadrome/platform/linux/SecretServiceStore.h"

#include "tests/support/TemporaryFolder.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace kelvadrome::test {
namespace {

/// What every store promises.
void keepsTheContract(SecretStore& store) {
    EXPECT_FALSE(store.exists());
    EXPECT_EQ(store.read(), std::nullopt);
    store.remove();
    store.set("  first \n");
    store.set("second");
    EXPECT_TRUE(store.exists());
    EXPECT_EQ(store.read(), "second");
    try {
        store.set(" \t");
        ADD_FAILURE() << "an empty secret was stored";
    } catch (const SecretStoreError& error) {
        EXPECT_STREQ(error.what(), "Keychain save failed (-50).");
    }
    EXPECT_EQ(store.read(), "second");
    store.remove();
    EXPECT_FALSE(store.exists());
    EXPECT_EQ(store.read(), std::nullopt);
}

mode_t modeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
}

/// A session bus of this test's own, without any service.
class PrivateBus {
public:
    PrivateBus() : bus_(g_test_dbus_new(G_TEST_DBUS_NONE)) { g_test_dbus_up(bus_); }
    ~PrivateBus() {
        stop();
        g_object_unref(bus_);
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    void stop() {
        if (silent_)
            g_object_unref(silent_);
        silent_ = nullptr;
        if (!std::exchange(stopped_, true))
            g_test_dbus_stop(bus_);
    }

    /// A keyring that takes every call and answers none.
    void startSilentKeyring() {
        const auto flags = static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        silent_ = g_dbus_connection_new_for_address_sync(
            g_test_dbus_get_bus_address(bus_), flags, nullptr, nullptr, nullptr);
        ASSERT_NE(silent_, nullptr);
        const auto swallow = [](GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                 gpointer) -> GDBusMessage* {
            const auto type = g_dbus_message_get_message_type(message);
            if (!incoming || type != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
                return message;
            g_object_unref(message);
            return nullptr;
        };
        g_dbus_connection_add_filter(silent_, swallow, nullptr, nullptr);
        auto* reply = g_dbus_connection_call_sync(silent_, "org.freedesktop.DBus", "/",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.freedesktop.secrets", 0U),
            nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        ASSERT_NE(reply, nullptr);
        g_variant_unref(reply);
    }

private:
    GTestDBus* bus_;
    GDBusConnection* silent_ = nullptr;
    bool stopped_ = false;
};

} // namespace

TEST(SecretStore, memoryAndFileKeepTheContract) {
    MemorySecretStore memory;
    keepsTheContract(memory);
    const TemporaryFolder folder;
    FileSecretStore file(folder / "secrets", "service", "account");
    keepsTheContract(file);
}

TEST(FileSecretStore, theFileIsPrivateAndAnythingElseAtItsPlaceIsRefused) {
    const TemporaryFolder folder;
    const auto secrets = folder / "secrets";
    const auto path = secrets + "/service.account";
    FileSecretStore store(secrets, "service", "account");
    store.set("secret");
    EXPECT_EQ(modeOf(secrets), 0700u);
    EXPECT_EQ(modeOf(path), 0600u);
    ::chmod(path.c_str(), 0644);
    EXPECT_EQ(store.read(), "secret");
    EXPECT_EQ(modeOf(path), 0600u);

    std::filesystem::rename(path, secrets + "/moved");
    std::filesystem::create_symlink(secrets + "/moved", path);
    EXPECT_FALSE(store.exists());
    EXPECT_THROW(store.read(), SecretStoreError);
    // Saving replaces the link and not what it points at.
    store.set("new");
    EXPECT_EQ(store.read(), "new");
    std::ifstream moved(secrets + "/moved");
    std::string text;
    moved >> text;
    EXPECT_EQ(text, "secret");
}

TEST(MachineSecretStore, withoutAKeyringThatAnswersTheSecretGoesToThePrivateFile) {
    const TemporaryFolder data;
    ::setenv("XDG_DATA_HOME", data.path().c_str(), 1);
    PrivateBus bus;
    ::unsetenv("WAYLAND_DISPLAY"); // the private bus hides the other kind of display
    using State = SecretServiceStore::State;
    EXPECT_EQ(SecretServiceStore::state(), State::absent);
    MachineSecretStore store("service", "account", "label");
    keepsTheContract(store);
    store.set("secret");
    const auto folder = data / "kelvadrome/secrets";
    EXPECT_EQ(modeOf(folder + "/service.account"), 0600u);
    EXPECT_NE(store.whereabouts().find(folder), std::string::npos);

    bus.startSilentKeyring();
    EXPECT_EQ(SecretServiceStore::state(0.2), State::absent);
    // A secret that lies in the file is read from there, and the keyring isn't even asked.
    EXPECT_EQ(MachineSecretStore("service", "account", "label").read(), "secret");

    // The bus may go away without taking this process along.
    bus.stop();
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_EQ(SecretServiceStore::state(), State::absent);
    ::unsetenv("XDG_DATA_HOME");
}

} // namespace kelvadrome::test
