#include "tests/live/desktop/DesktopStage.h"

namespace kelvadrome::test {
namespace {

TEST_F(DesktopStage, theWindowsComeAndGoAsTheyAreAskedTo) {
    finishSetupBeforehand();
    startApp();
    waitUntilUp();

    // The panel: by the tray, by its key, and gone with Escape and with the focus.
    const std::string words = "New questions land here first.";
    openPanelByTray(words);
    closePanel();
    openPanel(words);
    bringToFront("kelvadrome");
    waitClosed(panel);

    // Sections by their keys; Expert hides them all.
    waitActive("kelvadrome");
    for (const auto& [chord, section] : {std::pair("ctrl+2", "Topics"), {"ctrl+1", "Inbox"}}) {
        pressUntil(
            chord, [&] { return isSelected(section); }, std::string(section) + " to be selected");
    }
    const auto inspects = [&] { return reader->findPart("HttpOnly, in memory").has_value(); };
    pressUntil("ctrl+alt+i", inspects, "the inspector");
    tabTo("Page");
    until(
        [&] {
            keys("Tab");
            const auto name = reader->focused().value_or(ScreenReader::Thing{}).name;
            return !name.empty() && name != "Page";
        },
        "Tab to reach what is after the page");
    const auto sections = [&] { return reader->findPart("Topics", "list item").has_value(); };
    pressUntil(
        "ctrl+shift+e", [&] { return !sections(); }, "Expert to hide the sidebar");
    EXPECT_FALSE(inspects());
    pressUntil("ctrl+shift+e", sections, "the sidebar to be back");

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
    const auto canMinimize = [&] {
        const auto button = reader->find("Minimize", "button");
        return button && button->sensitive;
    };
    until(canMinimize, "the title's buttons to work in the window that came back");

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
