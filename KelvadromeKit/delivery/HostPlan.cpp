#include "KelvadromeKit/delivery/HostPlan.h"

#include "KelvadromeKit/delivery/LiveScripts.h"
#include "KelvadromeKit/delivery/ShellLine.h"
#include "KelvadromeKit/delivery/TmuxWord.h"
#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>

#include <algorithm>
#include <iterator>

namespace kelvadrome::HostPlan {

namespace {

using Plan = std::optional<std::vector<RunCommand>>;
using Words = std::vector<std::string>;

enum class Stroke { key, text, enter, escape };

/// Milliseconds in which the agent draws before the next stroke; after Escape a menu closes.
std::int64_t pauseAfter(Stroke stroke) {
    switch (stroke) {
    case Stroke::key:
        return 150;
    case Stroke::text:
        return 250;
    case Stroke::enter:
        return 100;
    case Stroke::escape:
        break;
    }
    return 450;
}

const std::string* find(const Bins& bins, const std::string& tool) {
    const auto found = bins.find(tool);
    return found == bins.end() ? nullptr : &found->second;
}

RunCommand script(std::string_view text, const std::string& tty, Words rest) {
    Words args{"-e", std::string(text), "/dev/" + tty};
    args.insert(args.end(), std::make_move_iterator(rest.begin()), std::make_move_iterator(rest.end()));
    return {std::string(osascript), std::move(args), 0};
}

RunCommand itermStroke(
    const std::string& tty, const std::string& ref, Stroke stroke, const std::string& payload) {
    static const std::map<Stroke, std::string> modes{
        {Stroke::key, "key"}, {Stroke::text, "text"}, {Stroke::enter, "cr"}, {Stroke::escape, "esc"}};
    return script(LiveScripts::itermWrite, tty, {ref, modes.at(stroke), payload});
}

/// A folder for tmux exactly as it stands. tmux expands formats in it, and "#(command)" is one: every "#" is
/// doubled, except those right before "[", which tmux leaves alone.
std::string tmuxFolder(std::string_view path) {
    std::string result;
    while (!path.empty()) {
        const auto run = std::min(path.find_first_not_of('#'), path.size());
        const auto rest = path.substr(run);
        result.append(rest.starts_with('[') ? run : 2 * run, '#');
        const auto plain = rest.substr(0, rest.find('#'));
        result.append(plain);
        path = rest.substr(plain.size());
    }
    return TmuxWord::escape(std::move(result));
}

/// The program that tmux starts. Without arguments tmux hands it to a shell, which must see one word.
std::string tmuxProgram(const std::string& path, bool alone) {
    static const RE2 plain("[A-Za-z0-9_./-]+");
    return alone && !RE2::FullMatch(path, plain) ? ShellLine::quote(path) : TmuxWord::escape(path);
}

RunCommand tmuxStroke(
    const std::string& tmux, const std::string& ref, Stroke stroke, const std::string& payload) {
    if (stroke == Stroke::enter)
        return {tmux, {"send-keys", "-t", ref, "Enter"}, 0};
    if (stroke == Stroke::escape)
        return {tmux, {"send-keys", "-t", ref, "Escape"}, 0};
    // Literal and after "--", so that neither a key's name nor a leading dash reads as anything else.
    return {tmux, {"send-keys", "-t", ref, "-l", "--", TmuxWord::escape(payload)}, 0};
}

RunCommand herdrStroke(
    const std::string& herdr, const std::string& ref, Stroke stroke, const std::string& payload) {
    if (stroke == Stroke::text)
        return {herdr, {"pane", "send-text", ref, payload}, 0};
    if (stroke == Stroke::enter)
        return {herdr, {"pane", "send-keys", ref, "enter"}, 0};
    if (stroke == Stroke::escape)
        return {herdr, {"pane", "send-keys", ref, "esc"}, 0};
    return {herdr, {"pane", "send-keys", ref, payload}, 0};
}

/// The steps as strokes; `press` makes a host's command from a stroke and its payload.
template <class Press>
Plan typed(const std::vector<DeliverStep>& steps, Press press) {
    std::vector<RunCommand> plan;
    const auto add = [&](Stroke stroke, const std::string& payload) {
        plan.push_back(press(stroke, payload));
        plan.back().pauseAfterMs = pauseAfter(stroke);
    };
    for (const auto& step : steps) {
        switch (step.kind) {
        case DeliverStep::Kind::key:
            add(Stroke::key, step.value);
            break;
        case DeliverStep::Kind::text:
            add(Stroke::text, step.value);
            add(Stroke::enter, "");
            break;
        case DeliverStep::Kind::escape:
            add(Stroke::escape, "");
            break;
        case DeliverStep::Kind::nav:
            return std::nullopt; // goes through navKey only
        }
    }
    return plan;
}

bool isOneText(const std::vector<DeliverStep>& steps) {
    return steps.size() == 1 && steps[0].kind == DeliverStep::Kind::text;
}

Plan queuePlan(const DeliverJob& job, const Bins& bins) {
    const auto* codex = find(bins, "codex");
    if (!codex || !isOneText(*job.steps))
        return std::nullopt;
    return {{{*codex, {"queue", "--thread", *job.codexThread, "--message", job.steps->front().value}, 0}}};
}

Plan itermPlan(const DeliverJob& job) {
    return typed(*job.steps, [&, ref = job.hostRef.value_or("")](Stroke stroke, const std::string& payload) {
        return itermStroke(*job.tty, ref, stroke, payload);
    });
}

Plan tmuxPlan(const DeliverJob& job, const Bins& bins) {
    const auto* tmux = find(bins, "tmux");
    if (!tmux || !job.hostRef || !isTmuxPane(*job.hostRef))
        return std::nullopt;
    return typed(*job.steps, [&](Stroke stroke, const std::string& payload) {
        return tmuxStroke(*tmux, *job.hostRef, stroke, payload);
    });
}

Plan herdrPlan(const DeliverJob& job, const Bins& bins) {
    const auto* herdr = find(bins, "herdr");
    if (!herdr || !job.hostRef || !isHerdrPane(*job.hostRef))
        return std::nullopt;
    if (isOneText(*job.steps)) {
        return {{{*herdr, {"agent", "prompt", *job.hostRef, job.steps->front().value}, 150}}};
    }
    return typed(*job.steps, [&](Stroke stroke, const std::string& payload) {
        return herdrStroke(*herdr, *job.hostRef, stroke, payload);
    });
}

bool isTTYOf(const DeliverJob& job, std::string_view tty) {
    return job.tty && (tty == *job.tty || tty == "/dev/" + *job.tty);
}

void collectPids(const JSONValue& value, std::set<std::int64_t>& pids) {
    if (value.isArray()) {
        for (const auto element : value.array())
            collectPids(JSONValue(element), pids);
    } else if (value.isObject()) {
        for (const auto field : value.object()) {
            const JSONValue inner(field.value);
            const bool names = field.key == "pid" || field.key == "shell_pid";
            const auto pid = names ? inner.integer() : std::nullopt;
            if (pid) {
                pids.insert(*pid);
            } else {
                collectPids(inner, pids);
            }
        }
    }
}

} // namespace

const std::set<std::string, std::less<>>& shells() {
    static const std::set<std::string, std::less<>> names{"zsh", "-zsh", "bash", "-bash", "sh", "-sh", "fish",
        "-fish", "tcsh", "csh", "dash", "ksh", "nu", "login"};
    return names;
}

bool isTmuxPane(std::string_view ref) {
    static const RE2 pattern("%[0-9]+");
    return RE2::FullMatch(ref, pattern);
}

bool isHerdrPane(std::string_view ref) {
    static const RE2 pattern("w[0-9]+:p[0-9]+");
    return RE2::FullMatch(ref, pattern);
}

std::optional<std::vector<RunCommand>> commands(const DeliverJob& job, const Bins& bins) {
    if (!job.steps)
        return std::nullopt;
    if (job.isCodexQueue())
        return queuePlan(job, bins);
    if (!job.tty)
        return std::nullopt;
    if (job.host == "iterm2")
        return itermPlan(job);
    if (job.host == "tmux")
        return tmuxPlan(job, bins);
    if (job.host == "herdr")
        return herdrPlan(job, bins);
    return std::nullopt; // Terminal too: keys are never typed into it
}

std::optional<RunCommand> screenRead(const DeliverJob& job, const Bins& bins) {
    if (!job.screen || job.screen->profile != "claude_trust" || !job.tty || !job.hostRef)
        return std::nullopt;
    if (job.host == "iterm2")
        return script(LiveScripts::itermRead, *job.tty, {*job.hostRef});
    const auto* tmux = find(bins, "tmux");
    if (job.host != "tmux" || !tmux || !isTmuxPane(*job.hostRef))
        return std::nullopt;
    return RunCommand{*tmux, {"capture-pane", "-p", "-t", *job.hostRef}, 0};
}

std::optional<RunCommand> navKey(const DeliverJob& job, std::string_view key, const Bins& bins) {
    struct Name {
        const char *tmux, *iterm;
    };
    static const std::map<std::string_view, Name> names{
        {"up", {"Up", "up"}}, {"down", {"Down", "down"}}, {"enter", {"Enter", "cr"}}};
    const auto name = names.find(key);
    if (name == names.end() || !job.tty || !job.hostRef)
        return std::nullopt;
    if (job.host == "iterm2") {
        return script(LiveScripts::itermWrite, *job.tty, {*job.hostRef, name->second.iterm, ""});
    }
    const auto* tmux = find(bins, "tmux");
    if (job.host != "tmux" || !tmux || !isTmuxPane(*job.hostRef))
        return std::nullopt;
    return RunCommand{*tmux, {"send-keys", "-t", *job.hostRef, name->second.tmux}, 0};
}

std::optional<RunCommand> tmuxOpen(
    const DeliverJob& job, const std::vector<std::string>& argv, const Bins& bins) {
    const auto* tmux = find(bins, "tmux");
    if (!tmux || !job.open || argv.empty() || !job.sessionId)
        return std::nullopt;
    const auto* agent = find(bins, argv.front());
    if (!agent)
        return std::nullopt;

    static const RE2 foreign("[^\\p{L}\\p{N}-]");
    std::string name = *job.sessionId;
    RE2::GlobalReplace(&name, foreign, "");
    Words args{"new-session", "-d", "-s", "kd-" + name, "-c", tmuxFolder(job.open->cwd), "--",
        tmuxProgram(*agent, argv.size() == 1)};
    std::transform(argv.begin() + 1, argv.end(), std::back_inserter(args), TmuxWord::escape);
    return RunCommand{*tmux, std::move(args), 0};
}

std::optional<RunCommand> preflight(const DeliverJob& job, const Bins& bins) {
    if (!job.tty || !job.hostRef || (job.host != "tmux" && job.host != "herdr"))
        return std::nullopt;
    const auto* tool = find(bins, job.host);
    if (!tool)
        return std::nullopt;
    if (job.host == "herdr")
        return RunCommand{*tool, {"pane", "process-info", "--pane", *job.hostRef}, 0};
    return RunCommand{
        *tool, {"display-message", "-p", "-t", *job.hostRef, "#{pane_tty} #{pane_current_command}"}, 0};
}

bool preflightPasses(const DeliverJob& job, std::string_view output) {
    if (job.host == "herdr")
        return job.pid && herdrPids(output).contains(*job.pid);
    if (job.host != "tmux")
        return true;
    const auto pieces = Text::split(Text::trimWhitespace(output), ' ', Text::EmptyPieces::drop, 1);
    if (pieces.empty() || !isTTYOf(job, pieces[0]))
        return false;
    return pieces.size() < 2 || !shells().contains(pieces[1]);
}

std::set<std::int64_t> herdrPids(std::string_view output) {
    try {
        return readJSON(output, [](const JSONValue& root) {
            std::set<std::int64_t> pids;
            collectPids(root, pids);
            return pids;
        });
    } catch (const DecodingError&) {
        return {};
    }
}

std::optional<std::string> scriptRefusal(std::string_view output) {
    const auto verdict = Text::trimWhitespace(output);
    if (verdict == "ok")
        return std::nullopt;
    if (verdict == "missing")
        return "the terminal tab is gone";
    if (verdict == "ambiguous")
        return "2 terminal tabs share this tty";
    if (verdict == "moved")
        return "the session moved to another terminal tab";
    if (verdict == "shell")
        return "the terminal is at a shell prompt: the agent ended";
    if (verdict == "unknown job")
        return "the terminal did not say what runs in the tab";
    return "the terminal did not answer";
}

} // namespace kelvadrome::HostPlan
