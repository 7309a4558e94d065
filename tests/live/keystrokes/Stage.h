#pragma once

#include "Kelvadrome/platform/linux/process/ProcessRunner.h"
#include "KelvadromeKit/delivery/DeliverJob.h"

#include "tests/live/keystrokes/Orders.h"
#include "tests/live/keystrokes/Recording.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace kelvadrome::test {

/// What this machine doesn't allow.
struct Impossible : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A tmux server of its own with an agent that asks, a neighbour in the same window, and recorders in all
/// panes. The agent runs below a shell, or is the pane's own process. May be used from two threads.
class Stage {
public:
    struct Setup {
        std::string shell = "bash"; // the name of what the agent runs below; empty for nothing
        std::string marked = {};    // of the folder question, "exit" or "trust"; "menu" for a choice between
                                    // Red and Blue; empty for a plain prompt
        std::string above = "exit"; // the option that stands above the other
        std::string role = "agent"; // the recorder's in the agent's pane
    };

    explicit Stage(Setup setup);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    /// Runs a tmux command on this server; throws when it fails.
    std::string tmux(std::vector<std::string> words);
    /// The same on a second server, whose one pane is a client of the first.
    std::string outerTmux(std::vector<std::string> words);

    // To a recorder; one that has ended gets nothing.
    void order(pid_t recorder, Order order) const;
    void signal(pid_t recorder, int number) const;
    /// Waits until this one began to read, more often than `before`; absent when `changing`, which is to
    /// become it, has ended by itself.
    std::optional<Recording::Event> awaitReady(
        const std::string& who, std::size_t before = 0, pid_t changing = 0) const;
    /// Words for tmux that start a recorder in a pane.
    std::vector<std::string> recorder(
        const std::string& name, const std::string& who, const std::string& role) const;
    /// Starts the server anew, with another agent in the pane of the same number.
    void restartServer();
    /// Stops the server, and lets it go on after this time.
    void freezeServer(std::chrono::milliseconds length);
    /// A client of the session, and what its user types.
    void attachClient();
    void typeAsClient(const std::string& text);
    void waitUntil(const std::function<bool()>& condition, const std::string& what) const;

    /// An answer for the agent, as it is now.
    DeliverJob answer(std::vector<DeliverStep> steps) const;
    Recording recording() const { return Recording::read(log_); }
    /// Lets everything go on that was stopped, and waits until nobody has read anything for a moment.
    Recording settled();

    std::map<std::string, std::string> environment() const;
    std::string socket() const { return folder_ / "socket"; }
    std::string project() const { return folder_ / "project"; }
    pid_t server() const { return server_; }
    pid_t agent() const { return agent_; }
    bool agentEnded() const;
    pid_t shell() const { return shell_; } // 0 when the agent runs below none
    const std::string& pane() const { return pane_; }
    std::string agentBin() const { return folder_ / "claude"; }

private:
    std::string run(const std::string& socket, std::vector<std::string> words);
    bool isRecorder(pid_t pid) const;
    std::vector<std::string> program() const;
    void start(std::vector<std::string> words);
    void end();

    const Setup setup_;
    TestLoop loop_; // of the stage's own commands
    std::mutex turn_;
    TemporaryFolder folder_;
    const std::string log_ = folder_ / "log";
    ProcessRunner runner_;
    std::string pane_;
    std::string tty_;
    pid_t server_ = 0;
    pid_t outer_ = 0;
    pid_t agent_ = 0;
    pid_t shell_ = 0;
    std::jthread thaw_;
};

} // namespace kelvadrome::test
