#include "tests/live/keystrokes/Rows.h"

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace kelvadrome::test {

namespace {

using namespace std::chrono_literals;

constexpr auto shell = Row::Below::shell;
constexpr auto unseen = Row::LastInstant::unseen;
constexpr auto folder = Row::Question::folder;
constexpr auto menu = Row::Question::menu;

void change(Stage& stage, pid_t recorder, Order order, const std::string& who) {
    const auto before = stage.recording().count(who, "ready");
    stage.order(recorder, order);
    stage.awaitReady(who, before, recorder);
}

void endAgent(Stage& stage, int signal) {
    stage.signal(stage.agent(), signal);
    stage.awaitReady("shell");
}

/// Runs a tmux command that ends with a recorder's, and waits until that one reads.
void startWith(Stage& stage, std::vector<std::string> words, const std::string& name, const std::string& who,
    const std::string& role) {
    words.emplace_back("--");
    for (const auto& word : stage.recorder(name, who, role))
        words.push_back(word);
    stage.tmux(words);
    stage.awaitReady(who);
}

void respawn(Stage& stage, Random& random) {
    const std::vector<std::string> words{"respawn-pane", "-k", "-t", stage.pane()};
    if (random() % 2 == 0)
        startWith(stage, words, "claude", "second", "agent");
    else
        startWith(stage, words, "bash", "shell", "reader");
}

void paneOfSameIndex(Stage& stage, Random&) {
    const auto window = stage.tmux({"display-message", "-p", "-t", stage.pane(), "#{window_id}"});
    stage.tmux({"kill-pane", "-t", stage.pane()});
    startWith(stage, {"split-window", "-d", "-b", "-t", window.substr(0, window.find('\n'))}, "claude",
        "second", "agent");
}

void typeBeside(Stage& stage, Random&) {
    for (std::ptrdiff_t i = 0; i < 5; ++i) {
        stage.typeAsClient(std::string(1, foreignKey));
        stage.waitUntil([&] { return std::ranges::count(stage.recording().bytes("agent"), foreignKey) > i; },
            "the client's keys");
        std::this_thread::sleep_for(30ms);
    }
}

void freeze(Stage& stage, Random& random) {
    // Mostly for a moment, at times until the round is over.
    stage.freezeServer(random() % 4 == 0 ? 60'000ms : std::chrono::milliseconds(100 + random() % 1500));
}

Row::Apply tmuxCommand(std::vector<std::string> before, std::vector<std::string> after = {}) {
    return [before, after](Stage& stage, Random&) {
        auto words = before;
        words.push_back(stage.pane());
        words.insert(words.end(), after.begin(), after.end());
        stage.tmux(words);
    };
}

Row::Apply told(Order order, const std::string& who) {
    return [order, who](Stage& stage, Random&) { change(stage, stage.agent(), order, who); };
}

Row::Apply shellTold(Order order) {
    return [order](Stage& stage, Random&) { change(stage, stage.shell(), order, "second"); };
}

Row::Apply agentGets(int signal) {
    return [signal](Stage& stage, Random&) { endAgent(stage, signal); };
}

std::vector<Row> all() {
    const auto nothing = [](Stage&, Random&) {};
    const auto stop = [](Stage& stage, Random&) { stage.signal(stage.agent(), SIGSTOP); };
    const auto rename = [](Stage& stage, Random&) {
        stage.tmux({"rename-window", "-t", stage.pane(), "other", ";", "rename-session", "another"});
    };
    const auto restart = [](Stage& stage, Random&) { stage.restartServer(); };
    const auto attach = [](Stage& stage) { stage.attachClient(); };
    const auto copyMode = tmuxCommand({"copy-mode", "-t"});
    return {
        {"nothing", "nothing", nothing, {.harmless = true}},
        {"killed", "agent killed, shell in the pane", agentGets(SIGKILL), {.below = shell}},
        {"exec-agent", "agent's process execs a new agent", told(Order::becomeAgent, "second"),
            {.lastInstant = unseen}},
        {"exec-shell", "agent's process execs a shell", told(Order::becomeShell, "shell")},
        {"suspended", "agent suspended, shell in the pane", agentGets(SIGSTOP), {.below = shell}},
        {"stopped", "agent stopped, nobody else in the pane", stop,
            {.below = Row::Below::nothing, .lastInstant = unseen}},
        {"respawned", "pane respawned", respawn},
        {"reader", "a child in the agent's own group reads the terminal", told(Order::startReader, "python3"),
            {.lastInstant = unseen}},
        {"editor", "an editor is open in the agent's own group", told(Order::startEditor, "vim"),
            {.lastInstant = unseen}},
        {"job", "another job has the terminal", told(Order::startJob, "job")},
        {"copy-mode", "copy mode", copyMode},
        {"no-input", "the pane's input is off", tmuxCommand({"select-pane", "-d", "-t"})},
        {"synchronised", "synchronised panes",
            tmuxCommand({"set-option", "-w", "-t"}, {"synchronize-panes", "on"})},
        {"pid-reused", "pid reused during delivery", shellTold(Order::reusePid),
            {.below = shell, .lastInstant = unseen}},
        {"client-types", "a second client types", typeBeside, {.lastInstant = unseen, .prepare = attach}},
        {"another-agent", "another agent in the pane", shellTold(Order::replaceAgent),
            {.below = shell, .lastInstant = unseen}},
        {"question", "another question on the screen, between text and Return",
            told(Order::leaveQuestion, "later"), {.inPause = true}},
        {"same-index", "another pane of the same index", paneOfSameIndex},
        {"renamed", "session and window renamed", rename, {.harmless = true}},
        {"moved", "pane moved to another window", tmuxCommand({"break-pane", "-d", "-s"}),
            {.harmless = true}},
        {"server-restarted", "server restarted, another agent in its pane", restart},
        {"server-frozen", "tmux server stands still for a while", freeze},
        {"menu", "menu: nothing", nothing, {.question = menu, .harmless = true}},
        {"menu-left", "menu: gone from the screen", told(Order::leaveQuestion, "later"), {.question = menu}},
        {"menu-other", "menu: another one of the same size", told(Order::changeOptions, "agent"),
            {.question = menu}},
        {"menu-replaced", "menu: another agent shows the same", shellTold(Order::replaceAgent),
            {.question = menu, .below = shell, .lastInstant = unseen}},
        {"folder", "folder question: nothing", nothing, {.question = folder, .harmless = true}},
        {"folder-killed", "folder question: agent killed", agentGets(SIGKILL),
            {.question = folder, .below = shell}},
        {"folder-left", "folder question: another question on the screen",
            told(Order::leaveQuestion, "later"), {.question = folder}},
        {"folder-marked", "folder question: the other option marked", told(Order::changeOptions, "agent"),
            {.question = folder}},
        {"folder-replaced", "folder question: another agent asks the same", shellTold(Order::replaceAgent),
            {.question = folder, .below = shell, .lastInstant = unseen}},
        {"folder-respawned", "folder question: pane respawned", respawn, {.question = folder}},
        {"folder-copy-mode", "folder question: copy mode", copyMode, {.question = folder}},
        {"folder-frozen", "folder question: tmux server stands still for a while", freeze,
            {.question = folder}},
    };
}

} // namespace

const std::vector<Row>& rows() {
    static const auto list = all();
    return list;
}

const Row& row(const std::string& name) {
    const auto found = std::ranges::find(rows(), name, &Row::name);
    if (found == rows().end())
        throw std::out_of_range("there is no row \"" + name + "\"");
    return *found;
}

} // namespace kelvadrome::test
