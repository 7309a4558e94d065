#pragma once

#include "KelvadromeKit/wire/DaemonClient.h"

#include "tests/live/desktop/Program.h"
#include "tests/live/desktop/ScreenReader.h"
#include "tests/support/HeadlessDisplay.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/bus/FakeNotificationServer.h"
#include "tests/support/bus/FakeTrayWatcher.h"

namespace kelvadrome::test {

/// A desktop of the test's own: display, window manager, session bus, screen reader, notification server and
/// tray. On it the real program with its daemon, in a fresh home, and agents in tmux panes. Nothing of the
/// user's is read or touched.
class DesktopStage : public PrivateBus {
protected:
    static constexpr double limit = 25; // seconds; only a hung test ever sees it
    static constexpr const char* panel = "What needs you";

    void SetUp() override;
    void TearDown() override;

    // The application.
    void startApp(const std::vector<std::string>& arguments = {});
    /// Until the main window is in front with the page in it, logged in.
    void waitUntilUp();
    /// How often the daemon has answered this, such as "page POST /v1/inbox 200", since the application's
    /// start, or since it last answered another.
    int timesAsked(const std::string& request, const std::optional<std::string>& since = {}) const;
    bool wasAsked(const std::string& request) const { return timesAsked(request) > 0; }
    /// A second start while the first runs; it ends by itself.
    void startAgain(const std::vector<std::string>& arguments = {});
    /// SIGTERM, and the exit that follows.
    void quitApp();
    /// From here on the daemon says that setup is over.
    void finishSetupBeforehand();
    /// From here on the daemon says that it installs the agent.
    void pretendInstalling(const std::string& agent);
    /// The processes below the application's of this name.
    std::vector<pid_t> childrenNamed(const std::string& name) const;
    std::int64_t daemonPid();
    std::vector<Card> cards();

    // What runs beside it.
    /// A script of the companion's or of the tests', with the application's home. It ends with what is given.
    std::unique_ptr<Program> startScript(
        const std::filesystem::path& script, std::vector<std::string> words, const std::string& log);
    /// Waits until the file of a script's words has a line that begins so; gives what follows.
    std::string hear(const std::string& log, const std::string& start);
    /// The code that the display shows, as a camera reads it.
    std::string scanCode();

    // A person.
    void keys(const std::string& chord); // "ctrl+p", or several with blanks
    void hold(const std::string& chord);
    void release(const std::string& chord);
    void type(const std::string& words);
    std::string activeWindow() const;
    ScreenReader::Thing see(const std::string& name, const std::string& role = {});
    ScreenReader::Thing seePart(const std::string& words, const std::string& role = {});
    void gone(const std::string& name);
    /// The first button with these words in its name.
    void press(const std::string& words) { reader->press(seePart(words, "button")); }
    /// Tab until that has the focus.
    void tabTo(const std::string& name);
    /// Tab to it, then the key that presses it.
    void pressByKeys(const std::string& name, const std::string& key = "Return") {
        tabTo(name);
        keys(key);
    }
    /// The panel, with its key or by the tray, until this shows in it and keys go there.
    void openPanel(const std::string& name) {
        pressUntil(
            "ctrl+p", [&] { return isOpen(panel); }, "the panel to open");
        waitActive(panel);
        see(name); // the main window may say the same
    }
    void openPanelByTray(const std::string& name) {
        activateTrayItem();
        see(name);
        waitActive(panel);
    }
    void closePanel() {
        pressUntil(
            "Escape", [&] { return !isOpen(panel); }, "the panel to close");
        waitActive("kelvadrome");
    }
    void waitActive(const std::string& window);
    bool isOpen(const std::string& window) const { return !withWindow(window).empty(); }
    void waitClosed(const std::string& window);
    /// Presses keys again and again until `done`: those that come while a window opens, gets the focus or
    /// draws what they are meant for are lost.
    void pressUntil(const std::string& chord, const std::function<bool()>& done, const std::string& what);
    void pressUntilSeen(const std::string& chord, const std::string& name) {
        pressUntil(
            chord, [&] { return reader->find(name).has_value(); }, "\"" + name + "\" to show");
    }
    void close(const std::string& window) {
        waitActive(window);
        pressUntil(
            "alt+F4", [&] { return !isOpen(window); }, "\"" + window + "\" to close");
    }
    /// Whether the sidebar's row of this section is selected.
    bool isSelected(const std::string& section) const;
    void activateTrayItem();
    /// A row of the tray item's menu.
    void pressInTrayMenu(std::int32_t id);
    /// Approves a high-risk card that the page shows, with the page's keys.
    void approveOnPage();
    /// Through the setup page to its end, with its keys.
    void walkThroughSetup();
    /// Until the display shows something else than the picture of before, and keeps still.
    void waitDrawn(std::size_t before, const std::string& what);
    /// For a window's title.
    void bringToFront(const std::string& window) { withWindow(window, {"windowactivate"}); }
    void resize(const std::string& window, int width, int height) {
        withWindow(window, {"windowsize", std::to_string(width), std::to_string(height)});
    }
    std::string sizeOf(const std::string& window) const; // "1000x640"
    /// Whether the window manager keeps it above the others.
    bool isAbove(const std::string& window) const;

    // Agents.
    /// Starts the sample agent in a pane of its own, and waits for its card.
    Card startAgent(const std::string& script);
    void seeInPane(const std::string& script, const std::string& words);

    /// Waits for what another process does; a failure says how everything stood.
    void until(const std::function<bool()>& condition, const std::string& what);

    TemporaryFolder folder;
    const std::filesystem::path bin = folder.path() / "bin"; // the folder of the program
    std::unique_ptr<HeadlessDisplay> display;
    std::unique_ptr<FakeNotificationServer> notifications;
    std::unique_ptr<FakeTrayWatcher> tray;
    std::unique_ptr<ScreenReader> reader;
    std::unique_ptr<Program> app;

private:
    void makeProgram();
    /// xdotool's commands for the window of this title; what it says.
    std::string withWindow(const std::string& window, const std::vector<std::string>& commands = {}) const;
    Program::Environment environment() const;
    std::string node() const { return (bin / "resources/node/bin/node").string(); }
    std::string run(const std::vector<std::string>& words) const { return output(words, environment()); }

    std::unique_ptr<Program> windowManager_;
    std::optional<DaemonClient> daemon_;
};

} // namespace kelvadrome::test
