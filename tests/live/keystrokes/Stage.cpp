#include "tests/live/keystrokes/Stage.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <thread>

namespace kelvadrome::test {

namespace {

using namespace std::chrono_literals;

constexpr auto patience = 15s; // only a hung round ever sees it
constexpr auto quiet = 120ms;  // how long nobody reads before a round counts as over

std::vector<std::string> joined(std::vector<std::string> words, const std::vector<std::string>& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

/// Gone, or waiting for its parent to take note of it.
bool ended(pid_t process) {
    const auto stat = Files::read(fmt::format("/proc/{}/stat", process), 10'000).value_or("");
    return stat.find(") ") == std::string::npos || stat.find(") Z ") != std::string::npos;
}

} // namespace

Stage::Stage(Setup setup) : setup_(std::move(setup)), runner_(loop_.pool(), environment()) {
    for (const std::string name : {"claude", "bash", "zsh", "xonsh", "make", "python3", "vim", "neighbour"})
        std::filesystem::create_symlink(RECORDER, folder_ / name);
    std::filesystem::create_directory(project());
    try {
        start(program());
    } catch (...) {
        end();
        throw;
    }
}

Stage::~Stage() {
    end();
}

void Stage::end() {
    if (server_ == 0) {
        try {
            tmux({"kill-server"}); // it may have come up after the command that starts it was given up
        } catch (const std::exception&) {
            // It did not come up.
        }
    }
    thaw_ = {};
    for (const pid_t server : {outer_, server_}) {
        if (server != 0)
            ::kill(server, SIGKILL);
    }
    // The panes' end ends the recorders, but for those that are stopped or have another terminal.
    std::set<pid_t> recorders;
    for (const auto& event : recording().events)
        recorders.insert(event.pid);
    for (const pid_t recorder : recorders)
        signal(recorder, SIGKILL);
}

/// A recorder of this stage, and no process that has its number by now.
bool Stage::isRecorder(pid_t pid) const {
    const auto words = Files::read(fmt::format("/proc/{}/cmdline", pid), 100'000).value_or("");
    return words.starts_with(folder_.path().string() + "/");
}

std::map<std::string, std::string> Stage::environment() const {
    // A search for leaks at the end would be one more process at the terminal.
    return {{"PATH", "/usr/bin:/bin"}, {"LANG", "C.UTF-8"}, {"TERM", "xterm"},
        {"ASAN_OPTIONS", "detect_leaks=0"}, {"HOME", folder_.path().string()},
        {"TMUX_TMPDIR", folder_.path().string()}};
}

std::vector<std::string> Stage::program() const {
    auto agent = recorder("claude", "agent", setup_.role);
    if (setup_.marked == "menu")
        agent.push_back(setup_.marked);
    else if (!setup_.marked.empty())
        agent = joined(std::move(agent), {project(), setup_.marked, setup_.above});
    return setup_.shell.empty() ? agent : joined(recorder(setup_.shell, "shell", "shell"), agent);
}

std::vector<std::string> Stage::recorder(
    const std::string& name, const std::string& who, const std::string& role) const {
    return {folder_ / name, log_, who, role};
}

void Stage::start(std::vector<std::string> words) {
    const auto before = recording().count("neighbour", "ready");
    auto command = joined({"-f", "/dev/null", "new-session", "-d", "-x", "100", "-y", "30", "-P", "-F",
                              "#{pane_id} #{pane_tty} #{pid} #{pane_pid}", "--"},
        words);
    command = joined(std::move(command), {";", "split-window", "-d", "--"});
    command = joined(std::move(command), recorder("neighbour", "neighbour", "reader"));
    const auto output = tmux(std::move(command));
    const auto facts = Text::split(Text::trimWhitespace(output), ' ');
    if (facts.size() != 4)
        throw std::runtime_error("tmux did not start: " + output);
    server_ = static_cast<pid_t>(Text::parseInteger(facts[2]).value_or(0));
    awaitReady("neighbour", before);
    if (agent_ != 0)
        return; // another server, whose agent is not the one that asked
    pane_ = facts[0];
    tty_ = facts[1].substr(std::string_view("/dev/").size());
    agent_ = awaitReady("agent")->pid;
    const auto first = static_cast<pid_t>(Text::parseInteger(facts[3]).value_or(0));
    shell_ = first == agent_ ? 0 : first;
    waitUntil(
        [&] {
            return tmux({"display-message", "-p", "-t", pane_, "#{pane_current_command}"}) == "claude\n";
        },
        "tmux to see the agent");
}

std::string Stage::tmux(std::vector<std::string> words) {
    return run(socket(), std::move(words));
}

std::string Stage::outerTmux(std::vector<std::string> words) {
    return run(folder_ / "outer", std::move(words));
}

std::string Stage::run(const std::string& socket, std::vector<std::string> words) {
    std::lock_guard guard(turn_);
    const auto said = fmt::format("{}", fmt::join(words, " "));
    const auto output = loop_.run(runner_.run({"/usr/bin/tmux", joined({"-S", socket}, words), 0}, 10));
    if (output.status != 0 || output.timedOut)
        throw std::runtime_error(fmt::format("tmux {}: {}", said, output.stderrText));
    return output.stdoutText;
}

void Stage::signal(pid_t recorder, int number) const {
    if (isRecorder(recorder))
        ::kill(recorder, number);
}

void Stage::order(pid_t recorder, Order order) const {
    sigval value{};
    value.sival_int = static_cast<int>(order);
    if (isRecorder(recorder))
        ::sigqueue(recorder, orderSignal(), value);
}

std::optional<Recording::Event> Stage::awaitReady(
    const std::string& who, std::size_t before, pid_t changing) const {
    std::optional<Recording::Event> found;
    const auto isReady = [&] {
        const auto seen = recording();
        if (seen.find("shell", "unable"))
            throw Impossible("a process with a chosen pid takes privileges");
        found = seen.find(who, "ready", before);
        return found || (changing != 0 && ended(changing));
    };
    waitUntil(isReady, who + " to be ready");
    return found;
}

void Stage::waitUntil(const std::function<bool()>& condition, const std::string& what) const {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error("waited in vain for " + what);
        std::this_thread::sleep_for(1ms);
    }
}

void Stage::restartServer() {
    ::kill(server_, SIGKILL);
    waitUntil([&] { return ended(server_); }, "the server to end");
    start(recorder("claude", "second", "agent"));
}

bool Stage::agentEnded() const {
    return ended(agent_);
}

void Stage::freezeServer(std::chrono::milliseconds length) {
    ::kill(server_, SIGSTOP);
    thaw_ = std::jthread([length, server = server_](std::stop_token stop) {
        const auto end = std::chrono::steady_clock::now() + length;
        while (!stop.stop_requested() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(5ms);
        ::kill(server, SIGCONT);
    });
}

void Stage::attachClient() {
    const auto pid = outerTmux({"-f", "/dev/null", "new-session", "-d", "-x", "100", "-y", "31", "-P", "-F",
        "#{pid}", "--", "/usr/bin/env", "-u", "TMUX", "/usr/bin/tmux", "-S", socket(), "attach"});
    outer_ = static_cast<pid_t>(Text::parseInteger(Text::trimWhitespace(pid)).value_or(0));
    waitUntil([&] { return !tmux({"list-clients"}).empty(); }, "a client");
}

void Stage::typeAsClient(const std::string& text) {
    outerTmux({"send-keys", "-l", "--", text});
}

DeliverJob Stage::answer(std::vector<DeliverStep> steps) const {
    DeliverJob job;
    job.id = "j1";
    job.type = "answer";
    job.agent = "claude";
    job.pid = agent_;
    job.pgid = ::getpgid(agent_);
    job.tty = tty_;
    job.host = "tmux";
    job.hostRef = pane_;
    job.steps = std::move(steps);
    job.presence = "tag";
    job.expiresAt = "2099-01-01T00:00:00Z";
    return job;
}

Recording Stage::settled() {
    thaw_ = {};
    signal(agent_, SIGCONT);
    auto last = recording();
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (auto since = std::chrono::steady_clock::now(); std::chrono::steady_clock::now() < deadline;) {
        std::this_thread::sleep_for(5ms);
        auto now = recording();
        if (now.events.size() != last.events.size())
            since = std::chrono::steady_clock::now();
        else if (std::chrono::steady_clock::now() - since > quiet)
            return now;
        last = std::move(now);
    }
    return last;
}

} // namespace kelvadrome::test
