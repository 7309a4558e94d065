#include "tests/live/desktop/DesktopStage.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include "tests/live/desktop/ScreenPicture.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

namespace kelvadrome::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* accessibilityService = "/usr/share/dbus-1/services/org.a11y.Bus.service";

std::optional<std::string> missing() {
    for (const std::string program : {"openbox", "xdotool", "xprop", "tmux", "zbarimg"}) {
        if (!fs::exists("/usr/bin/" + program))
            return program;
    }
    return fs::exists(accessibilityService) ? std::nullopt : std::optional<std::string>("at-spi2-core");
}

/// Requests go to the file "requests", as "page POST /v1/inbox 200"; of a stream, when it begins. While the
/// file "installing" names an agent, its install is under way.
constexpr const char* daemonScript = R"js(
import { appendFileSync, existsSync, readFileSync } from 'node:fs';
import http from 'node:http';
const note = (line) => appendFileSync('@FOLDER@/requests', `${line}\n`);
const emit = http.Server.prototype.emit;
http.Server.prototype.emit = function (type, request, reply) {
  if (type === 'request') {
    const what = `${request.socket.remotePort ? 'page' : 'socket'} ${request.method} ${request.url.split('?')[0]}`;
    if (what.endsWith('/v1/stream')) note(what); else reply.on('finish', () => note(`${what} ${reply.statusCode}`));
  }
  return emit.apply(this, arguments);
};
const { Onboarding } = await import('@COMPANION@/src/onboarding.mjs');
const real = Onboarding.prototype.status;
Onboarding.prototype.status = function () {
  const status = real.call(this);
  const installing = existsSync('@FOLDER@/installing') ? readFileSync('@FOLDER@/installing', 'utf8') : '';
  for (const agent of status.agents) if (agent.id === installing) agent.install = { state: 'running' };
  return status;
};
await import('@COMPANION@/kelvadromed-app.mjs');
)js";

std::string kept(const std::string& path) {
    return Files::read(path, 1'000'000).value_or("");
}

} // namespace

void DesktopStage::SetUp() {
    // The one service that may start by itself.
    const auto services = folder / "services";
    fs::create_directory(services);
    fs::copy(accessibilityService, services);
    // Where the bus of the screen readers has its socket: in the user's own folders tests side by side would
    // meet.
    for (const char* name : {"XDG_RUNTIME_DIR", "XDG_CACHE_HOME"})
        g_setenv(name, folder.path().c_str(), TRUE);
    PrivateBus::start(services);
    display = std::make_unique<HeadlessDisplay>(); // after the bus, which takes DISPLAY away
    const auto lacking = display->problem().empty() ? missing() : std::optional(display->problem());
    if (lacking) {
        std::fprintf(stderr, "SKIPPED, NOTHING TESTED: %s\n", lacking->c_str());
        GTEST_SKIP() << *lacking;
    }
    windowManager_ = std::make_unique<Program>(
        std::vector<std::string>{"openbox", "--sm-disable"}, environment(), folder / "openbox.log");
    until(
        [&] {
            return run({"xprop", "-root", "_NET_SUPPORTED"}).find("ACTIVE_WINDOW") != std::string::npos;
        },
        "the window manager");
    notifications =
        std::make_unique<FakeNotificationServer>(connection(), std::vector<const char*>{"actions", "body"});
    tray = std::make_unique<FakeTrayWatcher>(connection(), true);
    reader = std::make_unique<ScreenReader>();
    makeProgram();
    daemon_.emplace(folder / "home/kelvadromed.sock", loop.pool());
}

void DesktopStage::TearDown() {
    if (app && app->running() && !HasFatalFailure())
        quitApp();
    app.reset();
    run({"tmux", "kill-server"});
}

Program::Environment DesktopStage::environment() const {
    const auto variable = [](const char* name) { return std::string(g_getenv(name) ? g_getenv(name) : ""); };
    const auto own = folder.path().string();
    Program::Environment environment{{"PATH", "/usr/bin:/bin"}, {"HOME", own}, {"USER", "desktop"},
        {"SHELL", "/bin/sh"}, {"LANG", "C.UTF-8"}, {"TERM", "xterm-256color"},
        {"XDG_CONFIG_HOME", own + "/config"}, {"XDG_DATA_HOME", own + "/data"},
        {"XDG_CACHE_HOME", own + "/cache"}, {"XDG_RUNTIME_DIR", own}, {"TMUX_TMPDIR", own},
        {"KELVADROME_HOME", own + "/home"}, {"DISPLAY", variable("DISPLAY")},
        {"DBUS_SESSION_BUS_ADDRESS", variable("DBUS_SESSION_BUS_ADDRESS")}, {"GDK_BACKEND", "x11"},
        {"GSK_RENDERER", "cairo"}, {"GSETTINGS_BACKEND", "memory"}};
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"})
        environment[name] = variable(name);
    // Of a test that has a microphone; the sound server of whoever runs the tests is none of ours.
    const auto sound = variable("PULSE_SERVER");
    environment["PULSE_SERVER"] = sound.empty() ? "unix:" + own + "/no-sound" : sound;
    return environment;
}

// The application

void DesktopStage::startApp(const std::vector<std::string>& arguments) {
    fs::remove(folder / "requests");
    std::vector words{(bin / "kelvadrome").string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    app = std::make_unique<Program>(words, environment(), folder / "app.log");
}

void DesktopStage::waitUntilUp() {
    waitActive("kelvadrome");
    until([&] { return wasAsked("socket GET /v1/stream"); }, "the end of the start");
    until([&] { return wasAsked("page POST /v1/inbox 200"); }, "the page, logged in");
}

void DesktopStage::startAgain(const std::vector<std::string>& arguments) {
    std::vector words{(bin / "kelvadrome").string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const Program second(words, environment(), folder / "second.log");
    until([&] { return !second.running(); }, "the second start to end by itself");
    EXPECT_EQ(second.exitStatus(), 0) << kept(folder / "second.log");
}

void DesktopStage::quitApp() {
    app->signal(SIGTERM);
    until([&] { return !app->running(); }, "the application to end");
    EXPECT_EQ(app->exitStatus(), 0) << kept(folder / "app.log");
}

void DesktopStage::finishSetupBeforehand() {
    const auto home = folder / "home";
    fs::create_directory(home);
    fs::permissions(home, fs::perms::owner_all);
    const auto store = (bin / "resources/kelvadrome/src/store.mjs").string();
    output({node(), "--no-warnings", "--input-type=module", "-e",
               "const { Store } = await import('file://" + store + "'); const store = new Store('" + home +
                   "'); store.keepSetting('setup_finished', 'now');"},
        environment());
}

/// The program in a folder of its own, with a daemon that also notes each request that it has answered.
void DesktopStage::makeProgram() {
    const fs::path real = KELVADROME_BIN, companion = fs::canonical(real / "resources/kelvadrome");
    fs::create_directories(bin / "resources/kelvadrome");
    // It finds its modules and resources beside itself, so a symbolic link of its name won't do.
    std::error_code otherDisk;
    fs::create_hard_link(real / "kelvadrome", bin / "kelvadrome", otherDisk);
    if (otherDisk)
        fs::copy_file(real / "kelvadrome", bin / "kelvadrome");
    fs::create_symlink(real / "libkelvadrome-desktop.so", bin / "libkelvadrome-desktop.so");
    fs::create_symlink(real / "resources/node", bin / "resources/node");
    for (const auto& entry : fs::directory_iterator(companion)) {
        if (entry.path().filename() != "kelvadromed-app.mjs")
            fs::create_symlink(entry.path(), bin / "resources/kelvadrome" / entry.path().filename());
    }
    const auto script = Text::replaceAll(Text::replaceAll(daemonScript, "@COMPANION@", companion.string()),
        "@FOLDER@", folder.path().string());
    std::ofstream(bin / "resources/kelvadrome/kelvadromed-app.mjs") << script;
}

void DesktopStage::pretendInstalling(const std::string& agent) {
    std::ofstream(folder / "installing") << agent;
}

int DesktopStage::timesAsked(const std::string& request, const std::optional<std::string>& since) const {
    const auto requests = kept(folder / "requests");
    const auto lines = Text::split(requests, '\n');
    // Where it isn't found this is the first line.
    const auto from = since ? std::find(lines.rbegin(), lines.rend(), *since).base() : lines.begin();
    return static_cast<int>(std::count(from, lines.end(), request));
}

std::vector<pid_t> DesktopStage::childrenNamed(const std::string& name) const {
    std::vector<pid_t> found;
    std::vector<pid_t> parents{app->pid()};
    while (!parents.empty()) {
        const auto parent = parents.back();
        parents.pop_back();
        for (const auto& task : fs::directory_iterator(fmt::format("/proc/{}/task", parent))) {
            std::istringstream children(kept(task.path() / "children"));
            for (pid_t pid = 0; children >> pid;) {
                parents.push_back(pid);
                if (Text::trimWhitespace(kept(fmt::format("/proc/{}/comm", pid))) == name)
                    found.push_back(pid);
            }
        }
    }
    return found;
}

std::int64_t DesktopStage::daemonPid() {
    auto health = PrivateBus::run(daemon_->health(3));
    return health ? health->pid : 0;
}

std::vector<Card> DesktopStage::cards() {
    auto cards = PrivateBus::run(daemon_->cards());
    return cards ? std::move(*cards) : std::vector<Card>();
}

// What runs beside it

std::unique_ptr<Program> DesktopStage::startScript(
    const fs::path& script, std::vector<std::string> words, const std::string& log) {
    words.insert(words.begin(), {node(), script.string()});
    auto here = environment();
    for (const char* name : {"HOME", "PATH"}) // what it fetches comes from where the machine says
        here[name] = g_getenv(name);
    return std::make_unique<Program>(words, here, folder / log);
}

std::string DesktopStage::hear(const std::string& log, const std::string& start) {
    std::string text, rest;
    const auto said = [&] {
        text = kept(folder / log);
        for (const auto line : Text::split(text, '\n')) {
            if (line.starts_with(start)) {
                rest = line.substr(start.size());
                return true;
            }
        }
        return false;
    };
    try {
        until(said, "\"" + start + "\" in " + log);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(error.what() + text);
    }
    return rest;
}

std::string DesktopStage::scanCode() {
    std::string words;
    until(
        [&] {
            words = run({"zbarimg", "-q", "--raw", "-Sdisable", "-Sqrcode.enable", "x:root"});
            return !words.empty();
        },
        "a code that can be read");
    return std::string(Text::trimWhitespace(words));
}

// A person

void DesktopStage::keys(const std::string& chord) {
    std::vector<std::string> words{"xdotool", "key", "--delay", "40"};
    for (const auto key : Text::split(chord, ' '))
        words.emplace_back(key);
    run(words);
}

void DesktopStage::hold(const std::string& chord) {
    run({"xdotool", "keydown", chord});
}

void DesktopStage::release(const std::string& chord) {
    run({"xdotool", "keyup", chord});
}

void DesktopStage::type(const std::string& words) {
    run({"xdotool", "type", "--delay", "20", words});
}

std::string DesktopStage::activeWindow() const {
    // The last one stays named as active when it closes.
    const auto title = run({"xdotool", "getactivewindow", "getwindowname"});
    return isOpen(title) ? title : std::string();
}

ScreenReader::Thing DesktopStage::see(const std::string& name, const std::string& role) {
    std::optional<ScreenReader::Thing> found;
    until([&] { return (found = reader->find(name, role)).has_value(); }, "\"" + name + "\" to show");
    return found.value();
}

ScreenReader::Thing DesktopStage::seePart(const std::string& words, const std::string& role) {
    std::optional<ScreenReader::Thing> found;
    until([&] { return (found = reader->findPart(words, role)).has_value(); }, "\"" + words + "\" to show");
    return found.value();
}

void DesktopStage::gone(const std::string& name) {
    until([&] { return !reader->find(name); }, "\"" + name + "\" to go");
}

void DesktopStage::tabTo(const std::string& name) {
    until(
        [&] {
            const auto at = reader->focused();
            if (at && at->name == name)
                return true;
            keys("Tab");
            return false;
        },
        "the focus on \"" + name + "\"");
}

void DesktopStage::waitActive(const std::string& window) {
    until([&] { return activeWindow() == window; }, "\"" + window + "\" to be in front");
}

void DesktopStage::pressUntil(
    const std::string& chord, const std::function<bool()>& done, const std::string& what) {
    using Clock = std::chrono::steady_clock;
    auto again = Clock::now();
    until(
        [&] {
            if (done())
                return true;
            if (Clock::now() >= again) {
                keys(chord);
                again = Clock::now() + std::chrono::seconds(4);
            }
            return false;
        },
        what);
}

std::string DesktopStage::withWindow(
    const std::string& window, const std::vector<std::string>& commands) const {
    std::vector<std::string> words{"xdotool", "search", "--onlyvisible", "--name", "^" + window + "$"};
    words.insert(words.end(), commands.begin(), commands.end());
    return run(words);
}

void DesktopStage::waitClosed(const std::string& window) {
    until([&] { return !isOpen(window); }, "\"" + window + "\" to close");
}

bool DesktopStage::isSelected(const std::string& section) const {
    const auto row = reader->findPart(section, "list item");
    return row && row->selected;
}

void DesktopStage::activateTrayItem() {
    until([&] { return !tray->items.empty(); }, "the item in the tray");
    const auto name = tray->items.back();
    const SessionBus::Peer item{name.c_str(), "/StatusNotifierItem", "org.kde.StatusNotifierItem"};
    ask(tray->bus, item, "Activate", g_variant_new("(ii)", 1200, 4), "()");
}

void DesktopStage::pressInTrayMenu(std::int32_t id) {
    until([&] { return !tray->items.empty(); }, "the item in the tray");
    const auto name = tray->items.back();
    const SessionBus::Peer menu{name.c_str(), "/StatusNotifierItem/Menu", "com.canonical.dbusmenu"};
    ask(tray->bus, menu, "Event", g_variant_new("(isvu)", id, "clicked", g_variant_new_int32(0), 0U), "()");
}

bool DesktopStage::isAbove(const std::string& window) const {
    return run({"xprop", "-name", window, "_NET_WM_STATE"}).find("STATE_ABOVE") != std::string::npos;
}

/// The card has the focus: "1" chooses, which shows the review with the focus on "Back".
void DesktopStage::approveOnPage() {
    const auto asks = [this](const std::string& request) {
        return [this, request, before = timesAsked(request)] { return timesAsked(request) > before; };
    };
    const auto before = screenPicture();
    pressUntil("1", asks("page POST /v1/page/review 200"), "the review on the page");
    waitDrawn(before, "the review on the page");
    const auto answered = asks("page POST /v1/cards/answer 200");
    keys("Tab Return"); // to "Confirm and send"
    until(answered, "the page's answer");
}

/// The setup page tells nobody when it has drawn its next step, and keys that come before are lost.
void DesktopStage::waitDrawn(std::size_t before, const std::string& what) {
    constexpr int still = 6; // looks in a row that find the same picture
    std::size_t last = before;
    int same = 0;
    until(
        [&] {
            const auto now = screenPicture();
            same = now == last ? same + 1 : 0;
            last = now;
            return now != before && same >= still;
        },
        what + " to be drawn");
}

void DesktopStage::walkThroughSetup() {
    waitDrawn(0, "the setup page");
    const auto empty = screenPicture();
    keys("Tab Tab Return"); // past "Skip to content" to "Choose a folder"
    waitActive("Pick the folder that holds your work.");
    const auto before = timesAsked("page POST /v1/onboarding/status 200");
    press("Use folder");
    until([&] { return wasAsked("page POST /v1/onboarding/folder 200"); }, "the page to tell of the folder");
    until(
        [&] { return timesAsked("page POST /v1/onboarding/status 200") > before; }, "the folder on the page");
    waitDrawn(empty, "the folder on the page");
    // The way to the button first: a picture that changed with it would pass for the next step's.
    const auto step = [this](const char* way, const char* next) {
        auto shown = screenPicture();
        keys(way);
        waitDrawn(shown, std::string("the way to the button before ") + next);
        shown = screenPicture();
        keys("Return");
        waitDrawn(shown, next);
    };
    step("Tab Tab Tab", "the second step");        // past the folder and "Set up later" to "Continue"
    step("Tab Tab Tab Tab Tab", "the third step"); // "Copy" and the sample question come before those
    keys("Tab Tab Tab Return");                    // past "Back" and "Set up later" to "Finish setup"
    until([&] { return wasAsked("page POST /v1/onboarding/finish 200"); }, "the end of setup");
}

std::string DesktopStage::sizeOf(const std::string& window) const {
    const auto words = withWindow(window, {"getwindowgeometry"});
    return words.substr(std::min(words.size(), words.rfind(' ') + 1)); // "Geometry: 1000x640" comes last
}

// Agents

Card DesktopStage::startAgent(const std::string& script) {
    const auto before = cards();
    const auto agent = (bin / "resources/kelvadrome/sample-agent/sample-agent.mjs").string();
    const auto config = folder / "tmux.conf";
    std::ofstream(config) << "set -g remain-on-exit on\n";
    run({"tmux", "-f", config, "new-session", "-d", "-s", script, "-x", "100", "-y", "30",
        "exec '" + node() + "' '" + agent + "' --script " + script + " --once --pause 0"});
    std::optional<Card> asked;
    until(
        [&] {
            for (auto& card : cards()) {
                if (std::ranges::none_of(before, [&](const Card& old) { return old.id == card.id; }))
                    asked = std::move(card);
            }
            return asked.has_value();
        },
        "the card of \"" + script + "\"");
    return *asked;
}

void DesktopStage::seeInPane(const std::string& script, const std::string& words) {
    const auto pane = [&] { return run({"tmux", "capture-pane", "-p", "-J", "-t", script}); };
    until([&] { return pane().find(words) != std::string::npos; }, "\"" + words + "\" in the pane");
}

void DesktopStage::until(const std::function<bool()>& condition, const std::string& what) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            if (const char* picture = g_getenv("KELVADROME_TEST_PICTURE"))
                run({"import", "-window", "root", picture});
            throw std::runtime_error(
                fmt::format("waited in vain for {}\nthe application {}, in front: {}\n{}\n{}", what,
                    app && app->running() ? "runs" : "doesn't run", activeWindow(),
                    reader ? reader->describe() : "", kept(folder / "app.log")));
        }
        const auto pause = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
        while (std::chrono::steady_clock::now() < pause) { // the peers on the bus answer meanwhile
            loop.drain();
            if (!g_main_context_iteration(nullptr, FALSE))
                g_usleep(5000);
        }
    }
}

} // namespace kelvadrome::test
