#include "Kelvadrome/platform/linux/desk/DesktopApps.h"

#include "tests/support/HeadlessDisplay.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
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
        const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection_, root(), XCB_CW_EVENT_MASK, &mask);
    }
    ~Desktop() {
        xcb_ewmh_connection_wipe(&ewmh_);
        xcb_disconnect(connection_);
    }
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    xcb_window_t window(const std::string& instance, const std::string& kind, std::uint32_t pid) {
        const auto window = xcb_generate_id(connection_);
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, root(), 0, 0, 10, 10, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        const auto both = instance + '\0' + kind + '\0';
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
            std::uint32_t(both.size()), both.data());
        xcb_ewmh_set_wm_pid(&ewmh_, window, pid);
        return window;
    }
    void list(std::vector<xcb_window_t> oldestFirst, std::vector<xcb_window_t> lowestFirst) {
        xcb_ewmh_set_client_list(&ewmh_, 0, std::uint32_t(oldestFirst.size()), oldestFirst.data());
        xcb_ewmh_set_client_list_stacking(&ewmh_, 0, std::uint32_t(lowestFirst.size()), lowestFirst.data());
        std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr)); // done
    }
    void close(xcb_window_t window) { xcb_destroy_window(connection_, window); }

    /// The window that somebody asks to be in front; 0 when nobody does.
    xcb_window_t asked() {
        for (;;) {
            const std::unique_ptr<xcb_generic_event_t, decltype(&std::free)> event(
                xcb_poll_for_event(connection_), &std::free);
            pollfd ready{xcb_get_file_descriptor(connection_), POLLIN, 0};
            if (!event && ::poll(&ready, 1, 5000) <= 0)
                return 0;
            const auto* message = reinterpret_cast<xcb_client_message_event_t*>(event.get());
            if (event && (event->response_type & 0x7f) == XCB_CLIENT_MESSAGE &&
                message->type == ewmh_._NET_ACTIVE_WINDOW)
                return message->window;
        }
    }

private:
    xcb_window_t root() const { return ewmh_.screens[0]->root; }

    xcb_connection_t* connection_;
    xcb_ewmh_connection_t ewmh_{};
};

TEST(DesktopApps, anApplicationRunsByItsListedWindowsAndItsForemostComesForward) {
    auto display = std::make_unique<HeadlessDisplay>();
    if (!display->problem().empty())
        GTEST_SKIP() << display->problem();
    DesktopApps apps;
    EXPECT_FALSE(apps.isRunning(edge)); // no window manager lists anything
    auto desktop = std::make_unique<Desktop>();
    const auto other = desktop->window("microsoft-edge", "Navigator", 7);
    const auto own = desktop->window("kelvadrome", "com.kelvadrome.mac", 9);
    desktop->list({other, own}, {other, own});
    EXPECT_FALSE(apps.isRunning(edge));
    EXPECT_TRUE(apps.isRunning("com.kelvadrome.mac"));

    const auto kind = [&](std::uint32_t pid) { return desktop->window("msedge", "Microsoft-edge", pid); };
    const auto oldest = kind(7), latest = kind(7), second = kind(8);
    desktop->list({other, oldest, latest, second}, {oldest, latest, other, second});
    EXPECT_TRUE(apps.isRunning(edge));
    apps.activate("com.apple.Terminal");
    apps.activate(edge); // the first instance
    EXPECT_EQ(desktop->asked(), latest);
    desktop->close(latest); // still listed
    desktop->list({latest}, {latest});
    EXPECT_FALSE(apps.isRunning(edge));

    // A server that is started anew is followed.
    desktop->list({oldest}, {oldest});
    EXPECT_TRUE(apps.isRunning(edge));
    desktop.reset();
    display.reset();
    EXPECT_FALSE(apps.isRunning(edge));
    display = std::make_unique<HeadlessDisplay>();
    desktop = std::make_unique<Desktop>();
    const auto again = kind(7);
    desktop->list({again}, {again});
    EXPECT_TRUE(apps.isRunning(edge));
    ::setenv("WAYLAND_DISPLAY", "wayland-0", 1);
    EXPECT_FALSE(apps.isRunning(edge));
    ::unsetenv("WAYLAND_DISPLAY");
}

} // namespace
} // namespace kelvadrome::test
