#include "tests/live/keystrokes/Rows.h"

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace kelvadrome::test {

namespace {

using namespace std::chrono_literals;
using Question = Row::Question;
constexpr auto seen = Row::LastInstant::seen;
constexpr auto unseen = Row::LastInstant::unseen;

void change(Stage& stage, pid_t recorder, Order order, const std::string& who) {
    const auto before = stage.recording().count(who, "ready");
    stage.order(recorder, order);
    stage.awaitReady(who, before, recorder);
}

void endAgent(Stage& stage, int signal) {
    stage.signal(stage.agent(), signal);
    stage.awaitReady("shell");
}

void respawn(Stage& stage, Random& random) {
    std::vector<std::string> words{"respawn-pane", "-k", "-t", stage.pane(), "--"};
    const bool agent = random() % 2 == 0;
    for (const auto& word :
        agent ? stage.recorder("claude", "second", "agent") : stage.recorder("bash", "shell", "reader"))
        words.push_back(word);
    stage.tmux(words);
    stage.awaitReady(agent ? "second" : "shell");
}

void paneOfSameIndex(Stage& stage, Random&) {
    const auto window = stage.tmux({"display-message", "-p", "-t", stage.pane(), "#{window_id}"});
    stage.tmux({"kill-pane", "-t", stage.pane()});
    std::vector<std::string> words{
        "split-window", "-d", "-b", "-t", window.substr(0, window.find('\n')), "--"};
    for (const auto& word : stage.recorder("claude", "second", "agent"))
        words.push_back(word);
    stage.tmux(words);
    stage.awaitReady("second");
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
    return {
        {.name = "nothing", .words = "nothing", .harmless = true, .apply = nothing},
        {.name = "killed",
            .words = "agent killed, shell in the pane",
            .below = Row::Below::shell,
            .apply = agentGets(SIGKILL)},
        {.name = "exec-agent",
            .words = "agent's process execs a new agent",
            .lastInstant = unseen,
            .apply = told(Order::becomeAgent, "second")},
        {.name = "exec-shell",
            .words = "agent's process execs a shell",
            .apply = told(Order::becomeShell, "shell")},
        {.name = "suspended",
            .words = "agent suspended, shell in the pane",
            .below = Row::Below::shell,
            .apply = agentGets(SIGSTOP)},
        {.name = "stopped",
            .words = "agent stopped, nobody else in the pane",
            .below = Row::Below::nothing,
            .lastInstant = unseen,
            .apply = [](Stage& stage, Random&) { stage.signal(stage.agent(), SIGSTOP); }},
        {.name = "respawned", .words = "pane respawned", .apply = respawn},
        {.name = "reader",
            .words = "a child in the agent's own group reads the terminal",
            .lastInstant = unseen,
            .apply = told(Order::startReader, "python3")},
        {.name = "editor",
            .words = "an editor is open in the agent's own group",
            .lastInstant = unseen,
            .apply = told(Order::startEditor, "vim")},
        {.name = "job", .words = "another job has the terminal", .apply = told(Order::startJob, "job")},
        {.name = "copy-mode", .words = "copy mode", .apply = tmuxCommand({"copy-mode", "-t"})},
        {.name = "no-input",
            .words = "the pane's input is off",
            .apply = tmuxCommand({"select-pane", "-d", "-t"})},
        {.name = "synchronised",
            .words = "synchronised panes",
            .apply = tmuxCommand({"set-option", "-w", "-t"}, {"synchronize-panes", "on"})},
        {.name = "pid-reused",
            .words = "pid reused during delivery",
            .below = Row::Below::shell,
            .lastInstant = unseen,
            .apply = shellTold(Order::reusePid)},
        {.name = "client-types",
            .words = "a second client types",
            .lastInstant = unseen,
            .prepare = [](Stage& stage) { stage.attachClient(); },
            .apply = typeBeside},
        {.name = "another-agent",
            .words = "another agent in the pane",
            .below = Row::Below::shell,
            .lastInstant = unseen,
            .apply = shellTold(Order::replaceAgent)},
        {.name = "question",
            .words = "another question on the screen, between text and Return",
            .inPause = true,
            .apply = told(Order::leaveQuestion, "later")},
        {.name = "same-index", .words = "another pane of the same index", .apply = paneOfSameIndex},
        {.name = "renamed",
            .words = "session and window renamed",
            .harmless = true,
            .apply =
                [](Stage& stage, Random&) {
                    stage.tmux(
                        {"rename-window", "-t", stage.pane(), "other", ";", "rename-session", "another"});
                }},
        {.name = "moved",
            .words = "pane moved to another window",
            .harmless = true,
            .apply = tmuxCommand({"break-pane", "-d", "-s"})},
        {.name = "server-restarted",
            .words = "server restarted, another agent in its pane",
            .apply = [](Stage& stage, Random&) { stage.restartServer(); }},
        {.name = "server-frozen", .words = "tmux server stands still for a while", .apply = freeze},
        {.name = "folder",
            .words = "folder question: nothing",
            .question = Question::folder,
            .harmless = true,
            .apply = nothing},
        {.name = "folder-killed",
            .words = "folder question: agent killed",
            .question = Question::folder,
            .below = Row::Below::shell,
            .apply = agentGets(SIGKILL)},
        {.name = "folder-left",
            .words = "folder question: another question on the screen",
            .question = Question::folder,
            .apply = told(Order::leaveQuestion, "later")},
        {.name = "folder-marked",
            .words = "folder question: the other option marked",
            .question = Question::folder,
            .apply = told(Order::markOther, "agent")},
        {.name = "folder-replaced",
            .words = "folder question: another agent asks the same",
            .question = Question::folder,
            .below = Row::Below::shell,
            .lastInstant = unseen,
            .apply = shellTold(Order::replaceAgent)},
        {.name = "folder-respawned",
            .words = "folder question: pane respawned",
            .question = Question::folder,
            .apply = respawn},
        {.name = "folder-copy-mode",
            .words = "folder question: copy mode",
            .question = Question::folder,
            .apply = tmuxCommand({"copy-mode", "-t"})},
        {.name = "folder-frozen",
            .words = "folder question: tmux server stands still for a while",
            .question = Question::folder,
            .apply = freeze},
    };
}

} // namespace

const std::vector<Row>& rows() {
    static const auto list = all();
    return list;
}

const Row& row(const std::string& name) {
    for (const auto& row : rows()) {
        if (row.name == name)
            return row;
    }
    throw std::out_of_range("there is no row \"" + name + "\"");
}

} // namespace kelvadrome::test
