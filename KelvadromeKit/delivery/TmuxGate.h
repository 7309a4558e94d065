#pragma once

#include "KelvadromeKit/delivery/AgentWatch.h"
#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/delivery/DeliverJob.h"
#include "KelvadromeKit/delivery/MenuScreen.h"
#include "KelvadromeKit/delivery/TmuxKeys.h"
#include "KelvadromeKit/delivery/TypedEcho.h"
#include "KelvadromeKit/support/Clock.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// Runs one job's commands so that nothing can change between a look at the pane and the key that follows it.
///
/// Every tmux command goes to the server that the agent was started in. The first look at the pane is
/// remembered, and each key goes out in one command that compares all of it inside that server at the moment
/// of typing. The agent's process is looked at when that command's client is connected and waits for its
/// line, and once more after the key. Return waits until the text before it stands on the screen, and the
/// digit of a menu goes out only while that menu stands there. `ps` is answered by the watch. Commands for
/// other programs pass.
///
/// A client costs some milliseconds, so that what is asked at one moment is asked by one: the look together
/// with the command that the executor wants before its keys, and the screen together with the key.
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
    /// What the pane's screen says about a key, right before it.
    struct ScreenVerdict {
        std::vector<std::string> lines = {};     // that must still stand there when the key goes out
        std::optional<std::string> refusal = {}; // why the key must not go out
        bool notYet = false;                     // it must not go out yet
    };
    /// Judges the screen on the runner's thread, maybe after the gate is gone: it holds copies only.
    using ScreenJudge = std::function<ScreenVerdict(const std::string& screen)>;

    /// What came of one try to type a key.
    struct Attempt {
        RunOutput output;
        double ended = 0;            // uptime when its client had ended: the key went in before
        std::string screen = {};     // right before the key, where it was asked for
        bool notYet = false;         // no key was typed: the screen doesn't show what it is to, and may yet
        bool typedMeanwhile = false; // no key was typed, only because somebody typed in the pane
    };

    Task<RunOutput> onServer(RunCommand command, double timeout);
    Task<std::optional<std::string>> serverRefusal();
    Task<RunOutput> readWhenQuiet(std::string tmux, std::vector<std::string> reading, double timeout);
    Task<RunOutput> readWithMenu(RunCommand command, double timeout);
    std::optional<std::string> rememberLook(TmuxKeys::Look look, bool holdsSession);
    Task<RunOutput> press(RunCommand keys, double timeout);
    Task<Attempt> pressOnce(RunCommand keys, double timeout);
    Task<Attempt> pressOption(RunCommand keys, double timeout);
    Task<Attempt> pressReturn(RunCommand keys, double timeout);
    Task<Attempt> type(RunCommand keys, double timeout, ScreenJudge judge);
    Task<RunOutput> afterKey(RunOutput output);
    Task<std::optional<TypedEcho::Ending>> firstEcho(std::string tmux);
    ScreenJudge textMustStand() const;
    std::string pane() const { return job_.hostRef.value_or(""); }

    const DeliverJob job_;
    const std::optional<MenuScreen::Asked> menu_; // whose option the job's one key chooses
    const std::shared_ptr<CommandRunning> inner_;
    const std::shared_ptr<AgentWatch> agent_;
    const std::shared_ptr<Clock> clock_;

    std::optional<TmuxServer> server_;
    bool serverSought_ = false;
    std::optional<TmuxKeys::Look> firstLook_;
    std::vector<std::string> questionLines_; // of a screen question, by which a key was chosen
    bool keyHasGoneIn_ = false;

    // The text at the agent's prompt that no Return has sent yet, the screen before it came, and where it was
    // seen right after it.
    std::optional<std::string> text_;
    std::string screenBeforeText_;
    std::optional<TypedEcho::Ending> echoOfText_;
};

} // namespace kelvadrome
