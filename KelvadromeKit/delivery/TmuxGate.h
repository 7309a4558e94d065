#pragma once

#include "KelvadromeKit/delivery/AgentWatch.h"
#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/delivery/DeliverJob.h"
#include "KelvadromeKit/delivery/TmuxKeys.h"
#include "KelvadromeKit/delivery/TypedEcho.h"
#include "KelvadromeKit/support/Clock.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// What stands between one job's commands and the machine, so that a look and the key after it are one.
///
/// Every tmux command goes to the server that the agent was started in. The first look at the pane is
/// remembered, and each key goes out in one command that compares all of it inside that server at the moment
/// of typing. The agent's process is looked at when that command's client is connected and waits for its
/// line, and once more after the key. Return waits until the text before it stands on the screen. `ps` is
/// answered by the watch. Commands for other programs pass.
///
/// One gate serves one job, whose commands come one after the other. Any executor.
class TmuxGate final : public CommandRunning {
public:
    /// `inner` must come back from every command, as BoundedRunner does. The clock is the machine's: its wall
    /// time goes into commands that tmux compares with its own.
    TmuxGate(DeliverJob job, std::shared_ptr<CommandRunning> inner, std::shared_ptr<AgentWatch> agent,
        std::shared_ptr<Clock> clock);

    Task<RunOutput> run(RunCommand command, double timeout) override;

private:
    /// The agent's screen after a text.
    struct Echo {
        std::optional<TypedEcho::Ending> ending;
        std::string screen;
    };

    Task<RunOutput> onServer(RunCommand command, double timeout);
    Task<std::optional<std::string>> reachServer();
    Task<std::optional<std::string>> lookWhenQuiet(std::string tmux);
    Task<RunOutput> press(RunCommand keys, double timeout);
    Task<RunOutput> pressOnce(RunCommand keys, double timeout);
    Task<RunOutput> type(RunCommand keys, std::vector<std::string> lines, double timeout);
    Task<> letRead();
    Task<std::optional<Echo>> awaitEcho(std::string tmux, double limit);
    Task<std::optional<std::string>> echoRefusal(std::optional<Echo> echo);
    Task<std::optional<std::string>> screen(std::string tmux);

    const DeliverJob job_;
    const std::shared_ptr<CommandRunning> inner_;
    const std::shared_ptr<AgentWatch> agent_;
    const std::shared_ptr<Clock> clock_;

    std::optional<TmuxServer> server_;
    bool serverSought_ = false;
    std::optional<TmuxKeys::Look> seen_;
    std::vector<std::string> question_; // the lines of a screen question that a key's choice rests on

    // The text at the agent's prompt that no Return has sent yet, and the screen before it came.
    std::optional<std::string> typed_;
    std::string before_;
    std::optional<TypedEcho::Ending> stood_; // where it was seen right after it
    bool pressed_ = false;                   // a key has gone in
    bool typedMeanwhile_ = false;            // why the last key was not typed
};

} // namespace kelvadrome
