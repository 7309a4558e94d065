#include "tests/live/desktop/DesktopStage.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>

namespace kelvadrome::test {
namespace {

bool alive(pid_t pid) {
    return std::filesystem::exists("/proc/" + std::to_string(pid));
}

TEST_F(DesktopStage, whatTheApplicationLeansOnMayDieAndTheApplicationGoesOn) {
    finishSetupBeforehand();
    startApp();
    waitUntilUp();
    // The page's process, each time it is there: the page comes back by itself, but ever more slowly.
    const std::string words = "What the daemon keeps is safe.";
    until(
        [&] {
            for (const auto pid : childrenNamed("WebKitWebProces"))
                ::kill(pid, SIGKILL);
            return reader->findPart(words).has_value();
        },
        "words in the page's place");
    press("Try again");
    until([&] { return !reader->findPart(words); }, "the page to be back");

    // The notification server, the tray.
    notifications.reset();
    tray.reset();
    startAgent("stop");
    openPanel("Review in kelvadrome");
    closePanel();
    tray = std::make_unique<FakeTrayWatcher>(connection(), true);
    until([&] { return !tray->items.empty(); }, "the item in the new tray");

    // The daemon: what it knew is there again, and answers go out under a new session.
    const auto before = daemonPid();
    ::kill(static_cast<pid_t>(before), SIGKILL);
    until(
        [&] {
            const auto now = daemonPid();
            return now != 0 && now != before;
        },
        "another daemon");
    EXPECT_THAT(cards(), testing::SizeIs(1));
    startAgent("menu");
    openPanelByTray("2 need you");
    pressByKeys("PostgreSQL. Suggested. Holds 2 s so you can undo.");
    seeInPane("menu", "You chose: PostgreSQL");
    closePanel();

    // The page has the new session too.
    openPanel("Review in kelvadrome");
    pressByKeys("Review in kelvadrome");
    waitActive("kelvadrome");
    approveOnPage();
    seeInPane("stop", "You chose: Approve");

    // In order: the program last, its child and the socket before.
    const auto child = static_cast<pid_t>(daemonPid());
    quitApp();
    EXPECT_FALSE(alive(child));
    EXPECT_FALSE(std::filesystem::exists(folder / "home/kelvadromed.sock"));
}

} // namespace
} // namespace kelvadrome::test
