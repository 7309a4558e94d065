#include "KelvadromeKit/delivery/TmuxGate.h"

#include "KelvadromeKit/delivery/HostPlan.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <sodium.h>

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
constexpr double firstEchoPause = 0.01; // doubled with each look, up to the longest
constexpr double longestEchoPause = 0.05;
constexpr double menuLimit = 1.0; // for a menu to be drawn, or drawn anew
constexpr double menuPause = 0.05;
constexpr const char* somebodyTypes = "somebody types in the pane";
constexpr const char* paneGone = "the pane no longer holds this session";
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

/// What the last look came to. Shared with the runner's thread, which may outlive the wait for it.
class LastLook {
public:
    struct Found {
        std::string screen = {};
        std::vector<std::string> lines = {};     // of the screen, which the key's line names
        bool notYet = false;                     // what is to stand on the screen may yet be drawn
        std::optional<std::string> refusal = {}; // what else speaks against the key
        bool given = false;                      // the key's line went out
    };

    /// True when the key's line may go out: nothing speaks against it, and somebody still waits.
    bool allows(Found found) {
        const std::lock_guard guard(lock_);
        found_ = std::move(found);
        found_.given = !closed_ && !found_.notYet && !found_.refusal;
        return found_.given;
    }
    /// Afterwards the line can't go out any more.
    Found close() {
        const std::lock_guard guard(lock_);
        closed_ = true;
        return found_;
    }

private:
    std::mutex lock_;
    bool closed_ = false;
    Found found_;
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

/// What the menu's screen says, printed by TmuxKeys::menuWords.
MenuScreen::Seen seenMenu(const std::string& printed, const MenuScreen::Asked& asked) {
    auto screen = std::string_view(printed);
    screen = screen.substr(0, screen.find_last_not_of('\n') + 1);
    const auto lastLine = screen.rfind('\n') + 1; // 0 where there is only one
    const auto columns = Text::parseInteger(screen.substr(lastLine));
    if (!columns || *columns < 1)
        return {"the pane can't be read"};
    return MenuScreen::look(screen.substr(0, lastLine), static_cast<std::size_t>(*columns), asked);
}

/// A line that no screen shows: nobody can guess it.
std::string readyLine() {
    return fmt::format("ready {:08x}{:08x}", ::randombytes_random(), ::randombytes_random());
}

/// What was printed before the line `ready`; all where there is none.
std::string beforeLine(std::string_view printed, const std::string& ready) {
    return Text::repairUTF8(printed.substr(0, std::min(printed.find(ready + "\n"), printed.size())));
}

/// What was printed after it; nothing where there is none.
std::string afterLine(std::string_view printed, const std::string& ready) {
    const auto at = printed.find(ready + "\n");
    return at == std::string_view::npos ? "" : std::string(printed.substr(at + ready.size() + 1));
}

} // namespace

TmuxGate::TmuxGate(DeliverJob job, std::shared_ptr<CommandRunning> inner, std::shared_ptr<AgentWatch> agent,
    std::shared_ptr<Clock> clock)
    : job_(std::move(job)), menu_(MenuScreen::askedBy(job_)), inner_(std::move(inner)),
      agent_(std::move(agent)), clock_(std::move(clock)) {}

Task<RunOutput> TmuxGate::run(RunCommand command, double timeout) {
    if (isPs(command, job_)) {
        auto line = co_await agent_->psLine();
        if (line)
            co_return RunOutput{line->empty() ? 1 : 0, std::move(*line), "", false};
    }
    if (!isTmux(command) || command.args.empty())
        co_return co_await inner_->run(std::move(command), timeout);
    if (auto no = co_await serverRefusal())
        co_return refused(std::move(*no));
    if (command.args[0] == "send-keys")
        co_return co_await press(std::move(command), timeout);

    const bool reads = command.args[0] == "display-message" || command.args[0] == "capture-pane";
    if (!reads || !typesKeys(job_))
        co_return co_await onServer(std::move(command), timeout);
    if (menu_ && command.args[0] == "display-message")
        co_return co_await readWithMenu(std::move(command), timeout);
    auto output = co_await readWhenQuiet(command.path, command.args, timeout);
    if (command.args[0] == "capture-pane" && job_.screen)
        questionLines_ = lastLines(output.stdoutText);
    co_return output;
}

Task<RunOutput> TmuxGate::onServer(RunCommand command, double timeout) {
    if (server_)
        command.args.insert(command.args.begin(), {"-S", server_->socket});
    co_return co_await inner_->run(std::move(command), timeout);
}

/// Finds the agent's server, once. Why it can't be used, if it can't.
Task<std::optional<std::string>> TmuxGate::serverRefusal() {
    if (!std::exchange(serverSought_, true) && job_.pid)
        server_ = co_await agent_->tmuxServer();
    if (!server_)
        co_return std::nullopt; // the user's own, which tmux finds by itself
    const bool own = co_await agent_->isOwnSocket(server_->socket);
    if (!own)
        co_return "the agent's tmux server is gone or another user's";
    co_return std::nullopt;
}

/// Looks at the pane, and in the same turn of the server carries out `reading`, a command that prints. Waits
/// until nobody types in the pane. The output is that of `reading`, which may be empty.
Task<RunOutput> TmuxGate::readWhenQuiet(std::string tmux, std::vector<std::string> reading, double timeout) {
    if (!job_.hostRef || !job_.tty)
        co_return refused(paneGone);
    auto command = TmuxKeys::look(tmux, *job_.hostRef, *job_.tty);
    if (!command)
        co_return refused(paneGone);
    if (!reading.empty())
        command->args.push_back(";");
    command->args.insert(command->args.end(), reading.begin(), reading.end());
    const double began = clock_->uptime();
    for (;;) {
        auto output = co_await onServer(*command, timeout);
        auto look = output.succeeded() ? TmuxKeys::parseLook(output.stdoutText) : std::nullopt;
        if (!look && output.stdoutText.contains(" /dev/" + *job_.tty + " "))
            co_return refused("the name of the program in front can't be compared");
        if (!look || look->tty != "/dev/" + *job_.tty)
            co_return refused(paneGone);
        if (server_ && look->serverPid != std::to_string(server_->pid))
            co_return refused("the tmux server of this session was started anew");
        if (!look->typedJustNow()) {
            output.stdoutText.erase(0, output.stdoutText.find('\n') + 1);
            const bool preflight = !reading.empty() && reading[0] == "display-message";
            const auto line = output.stdoutText.substr(0, output.stdoutText.find('\n'));
            const bool holds = !preflight || HostPlan::preflightPasses(job_, line);
            if (auto no = rememberLook(std::move(*look), holds))
                co_return refused(std::move(*no));
            co_return output;
        }
        if (clock_->uptime() - began >= silenceLimit)
            co_return refused(somebodyTypes);
        co_await clock_->sleep(silencePause);
    }
}

/// A look before the first key, with the screen: the menu must stand there as it was asked. An agent that is
/// just drawing it is given a moment. The output is that of `command` alone.
Task<RunOutput> TmuxGate::readWithMenu(RunCommand command, double timeout) {
    auto reading = command.args;
    reading.emplace_back(";");
    const auto screen = TmuxKeys::menuWords(pane());
    reading.insert(reading.end(), screen.begin(), screen.end());
    const double began = clock_->uptime();
    for (;;) {
        auto output = co_await readWhenQuiet(command.path, reading, timeout);
        const auto end = std::min(output.stdoutText.find('\n'), output.stdoutText.size());
        const auto printed = output.stdoutText.substr(std::min(end + 1, output.stdoutText.size()));
        output.stdoutText.resize(end);
        if (!output.succeeded() || !HostPlan::preflightPasses(job_, output.stdoutText))
            co_return output;
        auto seen = seenMenu(printed, *menu_);
        if (!seen.refusal)
            co_return output;
        if (clock_->uptime() - began >= menuLimit)
            co_return refused(std::move(*seen.refusal));
        co_await clock_->sleep(menuPause);
    }
}

/// Keeps the first look. A later one renews only when somebody typed last: what the pane is must stay as the
/// first one found it. Gives why the pane takes no keys, unless something else is to be said: of a pane that
/// holds no session of ours (`holdsSession`), by the caller; and once a key has gone in, by each further key.
std::optional<std::string> TmuxGate::rememberLook(TmuxKeys::Look look, bool holdsSession) {
    auto no = TmuxKeys::stateRefusal(look);
    if (firstLook_)
        firstLook_->typed = std::move(look.typed);
    else if (!no)
        firstLook_ = std::move(look);
    return keyHasGoneIn_ || !holdsSession ? std::nullopt : std::move(no);
}

/// One key or text. Whoever types in the pane meanwhile, or only clicks or turns to it, is let finish before
/// the first key, and before a Return whose text must then stand as it was left. Between two other keys
/// nobody can tell what was typed, so that ends the answer.
Task<RunOutput> TmuxGate::press(RunCommand keys, double timeout) {
    const double began = clock_->uptime();
    const bool mayWait = !keyHasGoneIn_ || (text_ && keys.args.back() == "Enter");
    for (;;) {
        auto attempt = co_await pressOnce(keys, timeout);
        keyHasGoneIn_ = keyHasGoneIn_ || attempt.output.succeeded();
        if (!attempt.typedMeanwhile || !mayWait || clock_->uptime() - began >= silenceLimit)
            co_return std::move(attempt.output);
        co_await clock_->sleep(silencePause);
        const auto look = co_await readWhenQuiet(keys.path, {}, lookLimit);
        if (look.refusal)
            co_return look;
    }
}

Task<TmuxGate::Attempt> TmuxGate::pressOnce(RunCommand keys, double timeout) {
    const auto tmux = keys.path;
    const auto text = TmuxKeys::literalText(keys);
    const bool isText = text && typesText(job_);
    const bool endsText = !text && text_ && keys.args.back() == "Enter";
    // For a text the screen is read as well, to tell later what came of it.
    ScreenJudge judge;
    if (isText)
        judge = [lines = questionLines_](const std::string&) { return ScreenVerdict{lines}; };
    auto trying = endsText ? pressReturn(std::move(keys), timeout)
                  : menu_  ? pressOption(std::move(keys), timeout)
                           : type(std::move(keys), timeout, std::move(judge));
    auto attempt = co_await std::move(trying);
    if (!attempt.typedMeanwhile)
        text_ = isText && attempt.output.succeeded() ? text : std::nullopt;
    if (isText && attempt.output.succeeded()) {
        screenBeforeText_ = std::move(attempt.screen);
        echoOfText_ = co_await firstEcho(tmux);
    }
    if (attempt.output.succeeded())
        attempt.output.secondsSince = clock_->uptime() - attempt.ended;
    co_return attempt;
}

/// Return goes out in the very turn in which the text is seen on the screen. It waits for that a second. A
/// program without an input line, that reads all and draws nothing, is given Return all the same.
Task<TmuxGate::Attempt> TmuxGate::pressReturn(RunCommand keys, double timeout) {
    const double began = clock_->uptime();
    double pause = firstEchoPause;
    for (;;) {
        auto attempt = co_await type(keys, timeout, textMustStand());
        if (!attempt.notYet)
            co_return attempt;
        if (clock_->uptime() - began >= echoLimit) {
            const bool silent =
                !echoOfText_ && attempt.screen == screenBeforeText_ && !TypedEcho::showsMark(attempt.screen);
            bool took = false;
            if (silent)
                took = co_await agent_->tookInput();
            if (!took)
                co_return Attempt{refused("the text does not stand at the agent's prompt")};
            co_return co_await type(std::move(keys), timeout, {});
        }
        co_await clock_->sleep(pause);
        pause = std::min(2 * pause, longestEchoPause);
    }
}

/// The digit goes out in the very turn in which its menu is seen on the screen as it was asked. A screen that
/// is being drawn anew may lack it for a moment.
Task<TmuxGate::Attempt> TmuxGate::pressOption(RunCommand keys, double timeout) {
    const ScreenJudge judge = [asked = *menu_](const std::string& printed) {
        auto seen = seenMenu(printed, asked);
        const bool notYet = seen.refusal.has_value();
        return ScreenVerdict{std::move(seen.lines), std::move(seen.refusal), notYet};
    };
    const double began = clock_->uptime();
    for (;;) {
        auto attempt = co_await type(keys, timeout, judge);
        if (!attempt.notYet || clock_->uptime() - began >= menuLimit)
            co_return attempt;
        co_await clock_->sleep(menuPause);
    }
}

/// Where there is an input line, or the text has stood and is gone, the agent asks something else by now.
TmuxGate::ScreenJudge TmuxGate::textMustStand() const {
    return [text = *text_, before = screenBeforeText_, first = echoOfText_, lines = questionLines_](
               const std::string& screen) {
        ScreenVerdict verdict{lines};
        const auto echo = TypedEcho::find(text, before, screen);
        verdict.notYet = !echo;
        if (echo && (echo->drafted || (first && first->line != echo->line)))
            verdict.refusal = "something else stands at the agent's prompt beside the text";
        else if (echo)
            verdict.lines.push_back(echo->span);
        return verdict;
    };
}

/// Where the text that was just typed ends on the screen, once it shows there; absent when it doesn't within
/// a moment, or the pane can't be read.
Task<std::optional<TypedEcho::Ending>> TmuxGate::firstEcho(std::string tmux) {
    const RunCommand capture{std::move(tmux), TmuxKeys::captureWords(pane()), 0};
    const double began = clock_->uptime();
    double pause = firstEchoPause;
    for (;;) {
        const auto output = co_await onServer(capture, lookLimit);
        if (!output.succeeded())
            co_return std::nullopt;
        auto echo = TypedEcho::find(*text_, screenBeforeText_, output.stdoutText);
        if (echo || clock_->uptime() - began >= firstEchoLimit)
            co_return echo;
        co_await clock_->sleep(pause);
        pause = std::min(2 * pause, longestEchoPause);
    }
}

/// One try to type a key. With `judge` the same client prints the screen first, and `judge` may refuse.
Task<TmuxGate::Attempt> TmuxGate::type(RunCommand keys, double timeout, ScreenJudge judge) {
    Attempt attempt{refused(paneGone)};
    if (!firstLook_)
        co_return attempt;
    TmuxKeys::Condition condition{.look = *firstLook_,
        .lines = questionLines_,
        .sent = clock_->now().time_since_epoch().count(),
        .limit = timeout + lateAfter};
    if (!TmuxKeys::guarded(keys, condition)) {
        attempt.output = refused("the terminal did not take the keys");
        co_return attempt;
    }
    const auto last = std::make_shared<LastLook>();
    const auto ready = readyLine();
    const auto give = [agent = agent_, last, ready, keys, condition, judge](
                          std::string_view printed) -> std::optional<std::string> {
        auto under = condition;
        LastLook::Found found{.screen = beforeLine(printed, ready)};
        if (judge) {
            auto verdict = judge(found.screen);
            under.lines = std::move(verdict.lines);
            found.refusal = std::move(verdict.refusal);
            found.notYet = verdict.notYet;
        }
        found.lines = under.lines;
        auto line = TmuxKeys::guarded(keys, under);
        if (!found.refusal && !found.notYet)
            found.refusal = agent->refusalNow(); // the last of all that is looked at
        return last->allows(std::move(found)) ? std::move(line) : std::nullopt;
    };
    std::vector<std::string> reading;
    if (judge)
        reading = menu_ ? TmuxKeys::menuWords(pane()) : TmuxKeys::captureWords(pane());
    auto client = TmuxKeys::waiting(keys, ready, reading);
    client.input = std::make_shared<const LateInput>(LateInput{ready, give});
    auto output = co_await onServer(std::move(client), timeout);
    attempt.ended = clock_->uptime();
    auto found = last->close();
    condition.lines = std::move(found.lines);
    attempt.screen = std::move(found.screen);
    attempt.notYet = found.notYet;
    if (found.refusal || found.notYet) {
        attempt.output = refused(found.refusal.value_or(""));
        co_return attempt;
    }
    output.stdoutText = afterLine(output.stdoutText, ready);
    auto verdict = TmuxKeys::verdict(output, condition, found.given);
    attempt.typedMeanwhile = verdict.typedMeanwhile;
    if (verdict.kind == TmuxKeys::Verdict::Kind::refused) {
        attempt.output = refused(std::move(verdict.words));
    } else if (verdict.kind == TmuxKeys::Verdict::Kind::unknown) {
        attempt.output = perhapsTyped(std::move(verdict.words), output.timedOut);
    } else {
        auto checked = co_await afterKey(std::move(output));
        attempt.output = std::move(checked);
    }
    co_return attempt;
}

/// A look once the key has been read: it shows whether another process may have taken the key.
Task<RunOutput> TmuxGate::afterKey(RunOutput output) {
    const double began = clock_->uptime();
    for (;;) {
        const bool read = co_await agent_->hasRead();
        if (read || clock_->uptime() - began >= readLimit)
            break;
        co_await clock_->sleep(readPause);
    }
    const bool toldToEnd = job_.screen && job_.screen->want == "exit";
    if (auto doubt = co_await agent_->doubt(toldToEnd))
        co_return perhapsTyped(std::move(*doubt), false);
    co_return output;
}

} // namespace kelvadrome
