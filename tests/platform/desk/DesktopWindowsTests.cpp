#include "Kelvadrome/platform/linux/desk/DesktopWindows.h"

#include "tests/platform/desk/Person.h"
#include "tests/support/HeadlessDisplay.h"
#include "tests/support/bus/PrivateBus.h"

#include <unistd.h>
#include <xcb/xcb_ewmh.h>

namespace kelvadrome::test {
namespace {

constexpr std::int32_t app = 7;

/// Under a real window manager.
class DesktopWindowsTest : public PrivateBus {
protected:
    void SetUp() override {
        if (!display.problem().empty())
            GTEST_SKIP() << display.problem();
        manager.reset(
            g_subprocess_new(G_SUBPROCESS_FLAGS_STDERR_SILENCE, nullptr, "openbox", "--sm-disable", nullptr));
        ASSERT_TRUE(manager);
        person = std::make_unique<Person>();
        ASSERT_TRUE(xcb_ewmh_init_atoms_replies(&names, xcb_ewmh_init_atoms(person->x, &names), nullptr));
        waitFor(
            [&] {
                xcb_window_t window = XCB_NONE;
                return xcb_ewmh_get_supporting_wm_check_reply(&names,
                           xcb_ewmh_get_supporting_wm_check(&names, person->root), &window, nullptr) != 0;
            },
            "the window manager");
    }
    void TearDown() override {
        xcb_ewmh_connection_wipe(&names);
        if (manager)
            g_subprocess_force_exit(manager.get());
    }
    /// In front once it returns.
    xcb_window_t open(std::uint32_t pid, std::uint16_t width, xcb_atom_t type = XCB_NONE) {
        const auto window = person->window(10, 10, width, 200, 0);
        if (pid != 0)
            xcb_ewmh_set_wm_pid(&names, window, pid);
        if (type != XCB_NONE)
            xcb_ewmh_set_wm_window_type(&names, window, 1, &type);
        waitFor(
            [&] {
                person->show(window); // again: one that comes while the manager starts may be lost on it
                const bool managed = info(window).onScreen;
                if (!managed && ++lookedFor % 50 == 0)
                    xcb_unmap_window(person->x, window);
                return managed;
            },
            "a window");
        return window;
    }
    WindowInfo info(xcb_window_t window) {
        for (const auto& one : windows.windows()) {
            if (one.id == window)
                return one;
        }
        return {.onScreen = false};
    }
    void inFront(std::optional<std::uint32_t> window, const std::string& what) {
        waitFor([&] { return windows.frontWindow(app) == window; }, what);
    }

    HeadlessDisplay display;
    OwnedObject<GSubprocess> manager;
    std::unique_ptr<Person> person;
    xcb_ewmh_connection_t names{};
    DesktopWindows windows;
    int lookedFor = 0;
};

TEST_F(DesktopWindowsTest, theForemostOrdinaryWindowThatShowsIsTheOneToTake) {
    const auto first = open(app, 300), second = open(app, 300);
    open(app, 50); // too small for a picture
    const auto dock = open(app, 300, names._NET_WM_WINDOW_TYPE_DOCK);
    const auto silent = open(0, 300); // its connection tells whose it is
    EXPECT_EQ(info(dock).layer, 1);
    EXPECT_EQ(info(second), (WindowInfo{second, app, 0, 300, 200, 1, true}));
    EXPECT_EQ(windows.frontWindow(app), second);
    EXPECT_EQ(windows.frontWindow(::getpid()), std::nullopt); // never our own
    const FrontApplication other{::getpid(), silent};
    waitFor([&] { return windows.frontApplication() == other; }, "the focus on the new window");

    windows.activate({app, first});
    waitFor([&] { return windows.frontApplication() == FrontApplication{app, first}; }, "the focus");
    inFront(first, "the window that was activated");
    windows.activate(other);
    waitFor([&] { return windows.frontApplication() == other; }, "the focus back");

    xcb_ewmh_request_change_wm_desktop(&names, 0, first, 1, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER);
    person->sync();
    inFront(second, "the window of this desktop");
    const auto opacity = [&](std::uint32_t value) {
        const char* const name = "_NET_WM_WINDOW_OPACITY";
        const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
            xcb_intern_atom_reply(person->x, xcb_intern_atom(person->x, 0, 22, name), nullptr), &std::free);
        xcb_change_property(
            person->x, XCB_PROP_MODE_REPLACE, second, atom->atom, XCB_ATOM_CARDINAL, 32, 1, &value);
        person->sync();
    };
    opacity(0x08000000);
    inFront(std::nullopt, "a window that can be seen through");
    opacity(0x80000000);
    inFront(second, "a window that can be seen");
    xcb_unmap_window(person->x, second);
    person->sync();
    inFront(std::nullopt, "a window that is hidden");
}

} // namespace
} // namespace kelvadrome::test
