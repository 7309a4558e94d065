#include "tests/live/desktop/DesktopStage.h"

#include <xcb/xcb.h>

namespace kelvadrome::test {
namespace {

constexpr const char* bar = "Ask kelvadrome";
constexpr std::string_view elsewhere = "somewhere else";

/// A window of another program.
class OtherWindow {
public:
    OtherWindow() {
        const auto* const screen = xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data;
        const auto window = xcb_generate_id(connection_.get());
        xcb_create_window(connection_.get(), XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 400, 300, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_change_property(connection_.get(), XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME,
            XCB_ATOM_STRING, 8, elsewhere.size(), elsewhere.data());
        xcb_map_window(connection_.get(), window);
        xcb_flush(connection_.get());
    }

private:
    std::unique_ptr<xcb_connection_t, decltype([](xcb_connection_t* c) { xcb_disconnect(c); })> connection_{
        xcb_connect(nullptr, nullptr)};
};

TEST_F(DesktopStage, aSentenceInTheBarBecomesACardAndTheFocusGoesBack) {
    finishSetupBeforehand();
    startApp();
    waitUntilUp();
    const OtherWindow other;
    const std::string before(elsewhere);
    until([&] { return isOpen(before); }, "the other window");
    bringToFront(before);
    waitActive(before);

    const std::string key = "ctrl+alt+b"; // wherever the focus is
    keys(key);
    waitActive(bar);
    keys(key);
    waitClosed(bar);
    waitActive(before);
    keys(key);
    waitActive(bar);
    type("claude, review the payments");
    see("Ask: claude, review the payments");
    keys("Return");
    see("Claude Code, review");
    EXPECT_EQ(cards().size(), 1u);

    tabTo("Open");
    keys("Escape"); // also where the field has no focus
    waitClosed(bar);
    waitActive(before);

    // What was asked is found again, and a press leads to it.
    startAgain({"--bar"});
    waitActive(bar);
    type("payme");
    seePart("review the payments, Your request", "list item");
    keys("Down Return");
    waitClosed(bar);
    waitActive("kelvadrome");
}

} // namespace
} // namespace kelvadrome::test
