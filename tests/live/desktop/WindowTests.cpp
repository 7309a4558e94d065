#include "KelvadromeKit/support/Files.h"

#include "tests/live/desktop/DesktopStage.h"

#include <gmock/gmock.h>

namespace kelvadrome::test {
namespace {

TEST_F(DesktopStage, theWindowsComeAndGoAsTheyAreAskedTo) {
    finishSetupBeforehand();
    startApp();
    waitUntilUp();

    // The panel: by the tray, by its key, and gone with Escape and with the focus.
    const auto panelShows = [&] { return reader->find("New questions land here first.").has_value(); };
    activateTrayItem();
    until(panelShows, "the panel from the tray");
    keys("Escape");
    until([&] { return !panelShows(); }, "Escape to close the panel");
    keys("ctrl+p");
    until(panelShows, "the panel from its key");
    bringToFront("kelvadrome");
    until([&] { return !panelShows(); }, "the panel to close without the focus");

    // Sections by their keys; Expert hides them all.
    keys("ctrl+2");
    until([&] { return isSelected("Topics"); }, "Topics to be selected");
    keys("ctrl+1");
    until([&] { return isSelected("Inbox"); }, "Inbox to be selected");
    keys("ctrl+alt+i");
    seePart("HttpOnly, in memory");
    const auto focusedName = [&] { return reader->focused().value_or(ScreenReader::Thing{}).name; };
    const auto tabTo = [&](const std::string& what, const std::function<bool(const std::string&)>& reached) {
        until(
            [&] {
                keys("Tab");
                return reached(focusedName());
            },
            "Tab to reach " + what);
    };
    tabTo("the page", [](const auto& name) { return name == "Page"; });
    tabTo("what is after the page", [](const auto& name) { return !name.empty() && name != "Page"; });
    keys("ctrl+shift+e");
    until([&] { return !reader->findPart("Topics", "list item"); }, "Expert to hide the sidebar");
    EXPECT_FALSE(reader->findPart("HttpOnly, in memory"));
    keys("ctrl+shift+e");
    seePart("Topics", "list item");

    // The strip stands above all and leaves the focus where it is, also when it comes back.
    constexpr const char* strip = "kelvadrome agents";
    constexpr std::int32_t stripRow = 4;
    for (int i = 0; i < 2; ++i) {
        pressInTrayMenu(stripRow);
        until([&] { return isAbove(strip); }, "the strip above all windows");
        waitActive("kelvadrome");
        pressInTrayMenu(stripRow);
        waitClosed(strip);
    }

    // Closed, it comes back by an address and by a second start.
    close("kelvadrome");
    startAgain({"kelvadrome://open"});
    waitActive("kelvadrome");
    close("kelvadrome");
    startAgain();
    waitActive("kelvadrome");

    // Its size outlives the run.
    resize("kelvadrome", 1000, 640);
    until([&] { return sizeOf("kelvadrome") == "1000x640"; }, "the new size");
    quitApp();
    startApp();
    waitUntilUp();
    EXPECT_EQ(sizeOf("kelvadrome"), "1000x640");
}

} // namespace
} // namespace kelvadrome::test
