#include "KelvadromeKit/support/Files.h"

#include "tests/live/desktop/DesktopStage.h"

#include <chrono>
#include <csignal>
#include <thread>

namespace kelvadrome::test {
namespace {

constexpr const char* setup = "Set up kelvadrome";

TEST_F(DesktopStage, aFirstStartLeadsThroughSetupAndAsksBeforeAnInstallIsLost) {
    pretendInstalling("claude");
    startApp();
    waitActive(setup);

    const auto askToClose = [this] {
        pressUntil(
            "alt+F4", [this] { return reader->find("Finish setup later?").has_value(); },
            "the question before it closes");
    };

    app->signal(SIGTERM);
    see("Claude Code is installing. Quit anyway?");
    see("The install stops with kelvadrome and shows as interrupted at the next start.");
    press("Keep running");
    gone("Claude Code is installing. Quit anyway?");
    EXPECT_TRUE(app->running());

    // Closing asks once; "Finish later" leaves a line in the panel.
    waitActive(setup);
    askToClose();
    press("Keep going");
    gone("Finish setup later?");
    waitActive(setup);
    askToClose();
    press("Finish later");
    waitClosed(setup);
    activateTrayItem();
    see("3 short steps. Nothing installs or changes before you press.");
    press("Finish setup");
    waitActive(setup);

    // A second start brings setup back, not the main window.
    askToClose();
    press("Finish later");
    waitClosed(setup);
    const auto loads = timesAsked("page GET /onboarding 200");
    startAgain();
    waitActive(setup);

    // Without a tray the main window comes, leads to setup by its menu, and is what a second start brings.
    tray.reset();
    askToClose();
    press("Finish later");
    waitActive("kelvadrome");
    pressUntil(
        "F10", [this] { return reader->find("Finish Setup").has_value(); }, "the menu");
    keys("Escape");
    startAgain();
    see("3 short steps. Nothing installs or changes before you press.");
    EXPECT_FALSE(isOpen(setup));
    press("Finish setup");
    waitActive(setup);
    // The page of before asks too, until the new one has come.
    until(
        [&] {
            return timesAsked("page GET /onboarding 200") > loads + 1 &&
                   timesAsked("page POST /v1/onboarding/status 200", "page GET /onboarding 200") > 0;
        },
        "the setup page");

    walkThroughSetup();
    waitActive("kelvadrome");
    EXPECT_FALSE(reader->find(setup));
}

TEST(CommandLine, whatMeansNothingIsRefusedAndSaysSo) {
    struct Row {
        std::vector<std::string> words;
        int status;
        const char* said;
    };
    for (const auto& [words, status, said] :
        {Row{{"--nonsense"}, 2, "no option --nonsense"}, {{"-KDHome"}, 2, "-KDHome needs a value"},
            {{"-KDHome", "--terminal"}, 2, "-KDHome needs a value"},
            {{"https://example.org"}, 2, "begin with kelvadrome:"},
            {{"--terminal", "--background-status"}, 2, "must be the first"}, {{"-h"}, 0, "Usage:"}}) {
        const TemporaryFolder folder;
        std::vector<std::string> all{KELVADROME_BIN "/kelvadrome"};
        all.insert(all.end(), words.begin(), words.end());
        Program program(all, {{"PATH", "/usr/bin:/bin"}, {"HOME", folder.path()}}, folder / "log");
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (program.running() && std::chrono::steady_clock::now() < limit) {
            g_main_context_iteration(nullptr, FALSE);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ASSERT_FALSE(program.running()) << words[0];
        EXPECT_EQ(program.exitStatus(), status) << words[0];
        EXPECT_TRUE(Files::read(folder / "log", 10'000).value_or("").contains(said)) << words[0];
    }
}

} // namespace
} // namespace kelvadrome::test
