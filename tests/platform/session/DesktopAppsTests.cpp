#include "Kelvadrome/platform/linux/DesktopApps.h"

#include "tests/support/HeadlessDisplay.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <poll.h>
#include <vector>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

namespace kelvadrome::test {
namespace {

constexpr const char* edge = "com.microsoft.edgemac";

/// Both the applications with their windows and the window manager that lists them.
class Desktop {
public:
    Desktop() : connection_(xcb_connect(nullptr, nullptr)) {
        xcb_ewmh_init_atoms_replies(&ewmh_, xcb_ewmh_init_atoms(connection_, &ewmh_), nullptr);
        root_ = ewmh_.screens[0]->root;
        const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &mask);
    }
    ~Desktop() {
        xcb_ewmh_connection_wipe(&ewmh_);
        xcb_disconnect(connection_);
    }
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    xcb_window_t window(
        const std::string& instance, const std::string& kind, std::optional<std::uint32_t> pid) {
        const auto window = xcb_generate_id(connection_);
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, root_, 0, 0, 10, 10, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        const auto both = instance + '\0' + kind + '\0';
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
            static_cast<std::uint32_t>(both.size()), both.data());
        if (pid)
            xcb_ewmh_set_wm_pid(&ewmh_, window, *pid);
        return window;
    }
    void list(std::vector<xcb_window_t> oldestFirst, std::vector<xcb_window_t> lowestFirst) {
        xcb_ewmh_set_client_list(
            &ewmh_, 0, static_cast<std::uint32_t>(oldestFirst.size()), oldestFirst.data());
        xcb_ewmh_set_client_list_stacking(
            &ewmh_, 0, static_cast<std::uint32_t>(lowestFirst.size()), lowestFirst.data());
        sync();
    }
    void close(xcb_window_t window) {
        xcb_destroy_window(connection_, window);
        sync();
    }

    /// The window that somebody asks to be in front; 0 when nobody does.
    xcb_window_t asked() {
        for (;;) {
            auto* event = xcb_poll_for_event(connection_);
            pollfd ready{xcb_get_file_descriptor(connection_), POLLIN, 0};
            if (!event && ::poll(&ready, 1, 5000) <= 0)
                return 0;
            if (!event)
                continue;
            const std::unique_ptr<xcb_generic_event_t, decltype(&std::free)> owner(event, &std::free);
            const auto* message = reinterpret_cast<xcb_client_message_event_t*>(event);
            if ((event->response_type & 0x7f) != XCB_CLIENT_MESSAGE ||
                message->type != ewmh_._NET_ACTIVE_WINDOW)
                continue;
            EXPECT_EQ(message->data.data32[0], XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
            return message->window;
        }
    }

private:
    void sync() {
        std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }

    xcb_connection_t* connection_;
    xcb_ewmh_connection_t ewmh_{};
    xcb_window_t root_ = 0;
};

class DesktopAppsTest : public testing::Test {
protected:
    void SetUp() override {
        display = std::make_unique<HeadlessDisplay>();
        if (!display->problem().empty())
            GTEST_SKIP() << display->problem();
    }

    std::unique_ptr<HeadlessDisplay> display;
    DesktopApps apps;
};

TEST_F(DesktopAppsTest, anApplicationRunsWhenAWindowOfItsClassIsListed) {
    EXPECT_FALSE(apps.isRunning(edge)); // no window manager lists anything
    Desktop desktop;
    const auto other = desktop.window("microsoft-edge", "Navigator", 5);
    const auto browser = desktop.window("msedge", "Microsoft-edge", 7);
    const auto own = desktop.window("kelvadrome", "com.kelvadrome.mac", 9);
    desktop.list({other}, {other});
    EXPECT_FALSE(apps.isRunning(edge));
    desktop.list({other, browser, own}, {browser, own, other});
    EXPECT_TRUE(apps.isRunning(edge));
    EXPECT_TRUE(apps.isRunning("com.kelvadrome.mac"));
    EXPECT_FALSE(apps.isRunning("com.googlecode.iterm2"));
    desktop.close(browser); // still listed
    EXPECT_FALSE(apps.isRunning(edge));

    const auto beta = desktop.window("microsoft-edge-beta", "Microsoft-edge-beta", std::nullopt);
    desktop.list({beta}, {beta});
    EXPECT_TRUE(apps.isRunning(edge));
    ::setenv("WAYLAND_DISPLAY", "wayland-0", 1);
    EXPECT_FALSE(apps.isRunning(edge));
    ::unsetenv("WAYLAND_DISPLAY");
    ::setenv("DISPLAY", "", 1);
    EXPECT_FALSE(apps.isRunning(edge));
    apps.activate(edge);
}

TEST_F(DesktopAppsTest, theFirstInstancesForemostWindowComesForward) {
    Desktop desktop;
    const auto kind = [&](std::uint32_t pid) {
        return desktop.window("microsoft-edge", "Microsoft-edge", pid);
    };
    const auto oldest = kind(7);
    const auto latest = kind(7);
    const auto second = kind(8);
    const auto terminal = desktop.window("xterm", "XTerm", 7);
    desktop.list({terminal, oldest, latest, second}, {oldest, latest, terminal, second});
    apps.activate("com.apple.Terminal");
    apps.activate(edge);
    EXPECT_EQ(desktop.asked(), latest);
    desktop.list({oldest, latest}, {latest, oldest});
    apps.activate(edge);
    EXPECT_EQ(desktop.asked(), oldest);
}

TEST_F(DesktopAppsTest, aServerThatIsStartedAnewIsFollowed) {
    {
        Desktop desktop;
        const auto browser = desktop.window("microsoft-edge", "Microsoft-edge", 7);
        desktop.list({browser}, {browser});
        EXPECT_TRUE(apps.isRunning(edge));
    }
    display.reset();
    EXPECT_FALSE(apps.isRunning(edge));
    display = std::make_unique<HeadlessDisplay>();
    ASSERT_EQ(display->problem(), "");
    Desktop desktop;
    const auto browser = desktop.window("microsoft-edge", "Microsoft-edge", 7);
    desktop.list({browser}, {browser});
    EXPECT_TRUE(apps.isRunning(edge));
}

} // namespace
} // namespace kelvadrome::test
