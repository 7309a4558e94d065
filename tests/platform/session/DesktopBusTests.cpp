#include "Kelvadrome/platform/linux/desk/StatusNotifierItem.h"
#include "Kelvadrome/platform/linux/session/FileReveal.h"
#include "Kelvadrome/platform/linux/session/FreedesktopNotifications.h"
#include "Kelvadrome/platform/linux/session/LauncherBadge.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/bus/PrivateBus.h"

#include <gio/gunixfdlist.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <sys/stat.h>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;

using LauncherBadgeTest = PrivateBus;

TEST_F(LauncherBadgeTest, docksHearOfTheCountAndThoseThatComeLaterToo) {
    const auto dock = connect();
    const auto name = bus->name();
    const SessionBus::Peer entry{
        name.c_str(), "/com/kelvadrome/mac/launcher", "com.canonical.Unity.LauncherEntry"};
    std::vector<std::string> heard;
    const auto listening =
        dock->listen(entry, "Update", "(sa{sv})", [&](GVariant* update) { heard.push_back(print(update)); });
    settle(*dock, *bus);
    const auto update = [](int count, const char* visible) {
        return fmt::format(
            "('application://com.kelvadrome.mac.desktop', {{'count': <int64 {}>, 'count-visible': <{}>}})",
            count, visible);
    };
    {
        LauncherBadge badge(bus);
        badge.set(std::nullopt);
        badge.set(3);
        badge.set(3);
        settle(*bus, *dock);
        const FakePeer later(connection(), "com.canonical.Unity");
        waitFor([&] { return heard.size() == 2; }, "the later dock to be told");
        EXPECT_EQ(print(ask(*dock, entry, "Query", nullptr, "(sa{sv})").get()), update(3, "true"));
        badge.set(4);
    }
    settle(*bus, *dock);
    EXPECT_THAT(
        heard, ElementsAre(update(3, "true"), update(3, "true"), update(4, "true"), update(0, "false")));
}

class FileRevealTest : public PrivateBus {
protected:
    FileRevealTest() : file_(folder / "a plan.txt") {
        std::ofstream(file_) << "text";
        std::ofstream(folder / "xdg-open") << "#!/bin/sh\nln -s \"$1\" \"${0%/*}/opened\"\n";
        ::chmod((folder / "xdg-open").c_str(), 0700);
        ::setenv("PATH", (folder.path().string() + ":/usr/bin:/bin").c_str(), 1);
    }

    const TemporaryFolder folder;
    const std::string file_;
};

TEST_F(FileRevealTest, theFileManagerSelectsItOrThePortalOrAnOpenerShowsItsFolder) {
    FileReveal reveal(bus);
    reveal.reveal("plan.txt"); // whose folder nobody knows
    reveal.reveal(file_);
    waitFor([&] { return std::filesystem::exists(folder / "opened"); }, "the opener");
    EXPECT_EQ(std::filesystem::read_symlink(folder / "opened"), folder.path());
    std::filesystem::remove(folder / "opened");

    FakePeer manager(connection(), "org.freedesktop.FileManager1"); // knows no such method yet
    FakePeer portal(connection(), "org.freedesktop.portal.Desktop");
    struct stat got {};
    static const GDBusInterfaceVTable table{
        [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
            GDBusMethodInvocation* call, gpointer got) {
            auto* const files = g_dbus_message_get_unix_fd_list(g_dbus_method_invocation_get_message(call));
            EXPECT_EQ(::fstat(g_unix_fd_list_peek_fds(files, nullptr)[0], static_cast<struct stat*>(got)), 0);
            g_dbus_method_invocation_return_value(call, g_variant_new("(o)", "/request"));
        },
        nullptr, nullptr, {}};
    portal.serveRaw("/org/freedesktop/portal/desktop",
        "<node><interface name='org.freedesktop.portal.OpenURI'><method name='OpenDirectory'>"
        "<arg type='s' direction='in'/><arg type='h' direction='in'/><arg type='a{sv}' direction='in'/>"
        "<arg type='o' direction='out'/></method></interface></node>",
        table, &got);
    reveal.reveal(file_);
    waitFor([&] { return got.st_ino != 0; }, "the portal");
    struct stat expected {};
    ASSERT_EQ(::stat(file_.c_str(), &expected), 0);
    EXPECT_EQ(got.st_ino, expected.st_ino);
    settle(portal.bus, *bus);
    EXPECT_FALSE(std::filesystem::exists(folder / "opened"));

    std::string shown;
    manager.served = manager.bus.serve("/org/freedesktop/FileManager1",
        "<node><interface name='org.freedesktop.FileManager1'><method name='ShowItems'>"
        "<arg type='as' direction='in'/><arg type='s' direction='in'/></method></interface></node>",
        {.call = [&](const std::string&, GVariant* arguments) -> GVariant* {
            shown = print(arguments);
            return nullptr;
        }});
    reveal.reveal(file_);
    waitFor([&] { return !shown.empty(); }, "the file manager");
    EXPECT_EQ(shown, "(['file://" + folder.path().string() + "/a%20plan.txt'], '')");
}

using SessionBusTest = PrivateBus;

TEST_F(SessionBusTest, aReplyReachesNobodyButALivingOwnerAndWhatThatThrowsGoesNoFurther) {
    auto gone = std::make_shared<bool>();
    const auto stays = std::make_shared<bool>();
    int replies = 0;
    const auto ask = [&](const std::shared_ptr<void>& owner) {
        bus->call(busPeer, "GetId", nullptr, "(s)", owner, [&](GVariant*) {
            ++replies;
            throw std::runtime_error("a fault in the reply");
        });
    };
    ask(gone);
    ask(stays);
    gone.reset();
    settle(*bus, *bus);
    EXPECT_EQ(replies, 1);
}

TEST_F(SessionBusTest, withoutOneNothingIsOfferedAndNothingFailsButWhatMust) {
    EXPECT_TRUE(SessionBus::open()->connected());
    const auto none = std::make_shared<SessionBus>(nullptr);
    StatusNotifierItem item(none, {}, {});
    item.show({.label = "1"});
    item.setMenu({{.id = 1, .label = "Open"}});
    EXPECT_FALSE(item.hosted());
    LauncherBadge badge(none);
    badge.set(1);
    const auto center = FreedesktopNotifications::make(none);
    EXPECT_FALSE(center->acceptsThisProcess());
    EXPECT_FALSE(*run(center->requestAuthorization()));
    EXPECT_FALSE(run(center->add({.identifier = "a"})));
    center->withdraw("a");
}

} // namespace
} // namespace kelvadrome::test
