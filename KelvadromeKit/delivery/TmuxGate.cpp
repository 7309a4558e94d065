#include "KelvadromeKit/delivery/TmuxGate.h"

#include "KelvadromeKit/delivery/TypedEcho.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <mutex>

namespace kelvadrome {

namespace {

constexpr double lookLimit = 3.0;    // seconds, as all times here
constexpr double silenceLimit = 5.0; // for somebody who types in the pane to leave off
constexpr double silencePause = 0.25;
constexpr double readLimit = 0.1; // for the agent to read a key
constexpr double readPause = 0.005;
constexpr double firstEchoLimit = 0.25; // of a look whether the agent draws what it is typed
constexpr double echoLimit = 1.0;
constexpr double echoPause = 0.05;
constexpr const char* somebodyTypes = "somebody types in the pane";
constexpr double lateAfter = 2.0; // beyond a key's own limit, since tmux counts whole seconds
constexpr std::size_t questionLines = 3;

bool isTmux(const RunCommand& command) {
    return Text::lastPathComponent(command.path) == "tmux";
}

bool isPs(const RunCommand& command, const DeliverJob& job) {
    return command.path == "/bin/ps" && job.pid && command.args.size() == 4 && command.args[2] == "-p" &&
           command.args[3] == std::to_string(*job.pid);
}

/// Jobs of an unknown type are answers too.
bool typesKeys(const DeliverJob& job) {
    return job.type != "peek" && job.type != "focus" && job.type != "open";
}

/// Return follows every text, and never a key of a menu.
bool typesText(const DeliverJob& job) {
    return job.steps && std::ranges::any_of(*job.steps,
                            [](const DeliverStep& step) { return step.kind == DeliverStep::Kind::text; });
}

RunOutput refused(std::string words) {
    RunOutput output;
    output.status = 1;
    output.refusal = std::move(words);
    return output;
}

RunOutput perhapsTyped(std::string words, bool timedOut) {
    auto output = refused(std::move(words));
    output.timedOut = timedOut;
    output.mayHaveActed = true;
    return output;
}

/// What the last look at the agent came to. Shared with the runner's thread, which may outlive the wait for
/// it.
class LastLook {
public:
    /// True when the key's command may go out: nothing speaks against it, and somebody still waits.
    bool allows(std::optional<std::string> no) {
        const std::lock_guard guard(lock_);
        given_ = !no && !closed_;
        no_ = std::move(no);
        return given_;
    }
    /// Whether it went out, and what spoke against it. Afterwards it can't go out any more.
    std::pair<bool, std::optional<std::string>> close() {
        const std::lock_guard guard(lock_);
        closed_ = true;
        return {given_, no_};
    }

private:
    std::mutex lock_;
    bool given_ = false;
    bool closed_ = false;
    std::optional<std::string> no_;
};

/// The lines at the very end of a screen, where a question's options and its footer stand.
std::vector<std::string> lastLines(std::string_view screen) {
    std::vector<std::string> lines;
    for (const auto line : Text::split(screen, '\n')) {
        if (!Text::trimWhitespace(line).empty())
            lines.emplace_back(line);
    }
    if (lines.size() > questionLines)
        lines.erase(lines.begin(), lines.end() - questionLines);
    return lines;
}

} // namespace

TmuxGate::TmuxGate(DeliverJob job, std::shared_ptr<CommandRunning> inner, std::shared_ptr<AgentWatch> agent,
    std::shared_ptr<Clock> clock)
    : job_(std::move(job)), inner_(std::move(inner)), agent_(std::move(agent)), clock_(std::move(clock)) {}

Task<RunOutput> TmuxGate::run(RunCommand command, double timeout) {
    if (isPs(command, job_)) {
        auto line = co_await agent_->psLine();
        if (line)
            co_return RunOutput{line->empty() ? 1 : 0, std::move(*line), "", false};
    }
    if (!isTmux(command) || command.args.empty())
        co_return co_await inner_->run(std::move(command), timeout);
    if (auto no = co_await reachServer())
        co_return refused(std::move(*no));
    if (command.args[0] == "send-keys")
        co_return co_await press(std::move(command), timeout);

    const bool looks = command.args[0] == "display-message" || command.args[0] == "capture-pane";
    if (looks && typesKeys(job_)) {
        if (auto no = co_await lookWhenQuiet(command.path))
            co_return refused(std::move(*no));
    }
    const bool reads = command.args[0] == "capture-pane";
    auto output = co_await onServer(std::move(command), timeout);
    if (reads && job_.screen)
        question_ = lastLines(output.stdoutText);
    co_return output;
}

Task<RunOutput> TmuxGate::onServer(RunCommand command, double timeout) {
    if (server_)
        command.args.insert(command.args.begin(), {"-S", server_->socket});
    co_return co_await inner_->run(std::move(command), timeout);
}

/// Finds the agent's server, once. Why it can't be used, if it can't.
Task<std::optional<std::string>> TmuxGate::reachServer() {
    if (!std::exchange(serverSought_, true) && job_.pid)
        server_ = co_await agent_->tmuxServer();
    if (!server_)
        co_return std::nullopt; // the user's own, which tmux finds by itself
    const bool own = co_await agent_->isOwnSocket(server_->socket);
    if (!own)
        co_return "the agent's tmux server is gone or another user's";
    co_return std::nullopt;
}

/// Looks at the pane when nobody types in it, and remembers what it saw. A later look renews only when
/// somebody typed last: what the pane is must stay as the first one found it.
Task<std::optional<std::string>> TmuxGate::lookWhenQuiet(std::string tmux) {
    const std::string gone = "the pane no longer holds this session";
    if (!job_.hostRef || !job_.tty)
        co_return gone;
    const auto command = TmuxKeys::look(tmux, *job_.hostRef, *job_.tty);
    if (!command)
        co_return gone;
    const double began = clock_->uptime();
    for (;;) {
        const auto output = co_await onServer(*command, lookLimit);
        auto look = output.succeeded() ? TmuxKeys::parseLook(output.stdoutText) : std::nullopt;
        if (!look && output.stdoutText.contains(" /dev/" + *job_.tty + " "))
            co_return "the name of the program in front can't be compared";
        if (!look || look->tty != "/dev/" + *job_.tty)
            co_return gone;
        if (server_ && look->serverPid != std::to_string(server_->pid))
            co_return "the tmux server of this session was started anew";
        if (!look->typedJustNow()) {
            if (seen_)
                seen_->typed = std::move(look->typed);
            else if (!look->dead && !look->inMode && !look->inputOff && !look->synchronized)
                seen_ = std::move(*look);
            co_return std::nullopt; // those flags have words of their own, which the caller looks for
        }
        if (clock_->uptime() - began >= silenceLimit)
            co_return somebodyTypes;
        co_await clock_->sleep(silencePause);
    }
}

/// One key or text. Whoever types in the pane meanwhile, or only clicks or turns to it, is let finish before
/// the first key, and before a Return whose text must then stand as it was left. Between two other keys
/// nobody can tell what was typed, so that ends the answer.
Task<RunOutput> TmuxGate::press(RunCommand keys, double timeout) {
    const double began = clock_->uptime();
    const bool mayWait = !pressed_ || (typed_ && keys.args.back() == "Enter");
    for (;;) {
        auto output = co_await pressOnce(keys, timeout);
        pressed_ = pressed_ || output.succeeded();
        const bool again = std::exchange(typedMeanwhile_, false) && mayWait;
        if (!again || clock_->uptime() - began >= silenceLimit)
            co_return output;
        co_await clock_->sleep(silencePause);
        if (auto no = co_await lookWhenQuiet(keys.path))
            co_return refused(std::move(*no));
    }
}

Task<RunOutput> TmuxGate::pressOnce(RunCommand keys, double timeout) {
    const auto tmux = keys.path;
    const auto text = TmuxKeys::literalText(keys);
    std::vector<std::string> lines = question_;
    if (!text && typed_ && keys.args.back() == "Enter") {
        const auto echo = co_await awaitEcho(tmux, echoLimit);
        if (auto no = co_await echoRefusal(echo))
            co_return refused(std::move(*no));
        if (echo && echo->ending)
            lines.push_back(echo->ending->span);
    }
    const bool isText = text && typesText(job_);
    if (isText) {
        auto before = co_await screen(tmux);
        if (!before)
            co_return refused("the pane no longer holds this session");
        before_ = std::move(*before);
    }

    auto output = co_await type(std::move(keys), std::move(lines), timeout);
    if (!typedMeanwhile_)
        typed_ = isText && output.succeeded() ? text : std::nullopt;
    if (isText && output.succeeded()) {
        const auto echo = co_await awaitEcho(tmux, firstEchoLimit);
        stood_ = echo ? echo->ending : std::nullopt;
    }
    co_return output;
}

Task<RunOutput> TmuxGate::type(RunCommand keys, std::vector<std::string> lines, double timeout) {
    if (!seen_)
        co_return refused("the pane no longer holds this session");
    const TmuxKeys::Condition condition{.look = *seen_,
        .lines = std::move(lines),
        .sent = clock_->now().time_since_epoch().count(),
        .limit = timeout + lateAfter};
    const auto line = TmuxKeys::guarded(keys, condition);
    if (!line)
        co_return refused("the terminal did not take the keys");

    const auto last = std::make_shared<LastLook>();
    auto client = TmuxKeys::waiting(keys);
    const auto give = [agent = agent_, last, line = *line]() -> std::optional<std::string> {
        auto no = agent->refusalNow();
        return last->allows(std::move(no)) ? std::optional(line) : std::nullopt;
    };
    client.input = std::make_shared<const LateInput>(LateInput{std::string(TmuxKeys::readyLine), give});
    const auto output = co_await onServer(std::move(client), timeout);
    const auto [given, no] = last->close();
    if (no)
        co_return refused(*no);
    auto verdict = TmuxKeys::verdict(output, condition, given);
    typedMeanwhile_ = verdict.typedMeanwhile;
    if (verdict.kind == TmuxKeys::Verdict::Kind::refused)
        co_return refused(std::move(verdict.words));
    if (verdict.kind == TmuxKeys::Verdict::Kind::unknown)
        co_return perhapsTyped(std::move(verdict.words), output.timedOut);
    co_await letRead();
    const bool toldToEnd = job_.screen && job_.screen->want == "exit";
    if (auto doubt = co_await agent_->doubt(toldToEnd))
        co_return perhapsTyped(std::move(*doubt), false);
    co_return output;
}

/// Gives the agent a moment to read the key, so that whoever took it in its place shows in the look that
/// follows.
Task<> TmuxGate::letRead() {
    const double began = clock_->uptime();
    for (;;) {
        const bool read = co_await agent_->hasRead();
        if (read || clock_->uptime() - began >= readLimit)
            co_return;
        co_await clock_->sleep(readPause);
    }
}

/// Waits until the text stands at the agent's prompt; absent when the pane can't be read.
Task<std::optional<TmuxGate::Echo>> TmuxGate::awaitEcho(std::string tmux, double limit) {
    const double began = clock_->uptime();
    for (;;) {
        auto now = co_await screen(tmux);
        if (!now)
            co_return std::nullopt;
        auto ending = TypedEcho::find(*typed_, before_, *now);
        if (ending || clock_->uptime() - began >= limit)
            co_return Echo{std::move(ending), std::move(*now)};
        co_await clock_->sleep(echoPause);
    }
}

/// Why Return must not follow the text. A program without an input line, that reads all and draws nothing, is
/// taken at its word. Where there is one, or the text has stood and is gone, the agent asks something else by
/// now.
Task<std::optional<std::string>> TmuxGate::echoRefusal(std::optional<Echo> echo) {
    if (!echo)
        co_return "the pane no longer holds this session";
    if (echo->ending) {
        const bool another = stood_ && stood_->line != echo->ending->line;
        if (echo->ending->drafted || another)
            co_return "something else stands at the agent's prompt beside the text";
        co_return std::nullopt;
    }
    const bool silent = !stood_ && echo->screen == before_ && !TypedEcho::showsMark(echo->screen);
    bool took = false;
    if (silent)
        took = co_await agent_->tookInput();
    if (took)
        co_return std::nullopt;
    co_return "the text does not stand at the agent's prompt";
}

/// With its colours, by which a suggestion of the agent's differs from what was typed.
Task<std::optional<std::string>> TmuxGate::screen(std::string tmux) {
    RunCommand capture{std::move(tmux), {"capture-pane", "-p", "-e", "-t", job_.hostRef.value_or("")}, 0};
    auto output = co_await onServer(std::move(capture), lookLimit);
    if (!output.succeeded())
        co_return std::nullopt;
    co_return std::move(output.stdoutText);
}

} // namespace kelvadrome
