#include "KelvadromeKit/delivery/TmuxKeys.h"

#include "KelvadromeKit/delivery/ShellLine.h"
#include "KelvadromeKit/delivery/TmuxWord.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <algorithm>

namespace kelvadrome::TmuxKeys {

namespace {

constexpr std::string_view typedWord = "ok";
constexpr std::string_view refusedWord = "no ";
constexpr std::size_t fieldCount = 11;

/// Everything that is compared, as one line; the program's name comes last, for it may hold blanks.
std::string lookFormat(std::string_view tty) {
    // For each session that somebody sees and whose active pane has this terminal. (A pane's id holds "%",
    // which tmux may take for a part of a date.)
    const auto typed = fmt::format(
        "#{{S:#{{?#{{&&:#{{session_attached}},#{{==:#{{pane_tty}},{}}}}},#{{session_activity}}/,}}}}", tty);
    return "#{pane_tty} #{pane_pid} #{pane_dead} #{pane_in_mode} #{pane_input_off} #{pane_synchronized} "
           "#{start_time} #{pid} /" +
           typed + " #{pane_current_command}";
}

/// What `lookFormat` gave for this look.
std::string lookLine(const Look& look) {
    std::string typed = "/";
    for (const auto time : look.typed)
        typed += std::to_string(time) + "/";
    const auto flag = [](bool set) { return set ? '1' : '0'; };
    return fmt::format("{} {} {} {} {} {} {} {} {} {}", look.tty, look.panePid, flag(look.dead),
        flag(look.inMode), flag(look.inputOff), flag(look.synchronized), look.serverStart, look.serverPid,
        typed, look.command);
}

std::string both(const std::string& left, const std::string& right) {
    return "#{&&:" + left + "," + right + "}";
}

/// True when the line stands on the pane's screen. Punctuation means something to tmux in one place or
/// another, so that any one character will do for it.
std::string holdsLine(std::string_view line) {
    std::string pattern;
    for (const char c : Text::trimWhitespace(line)) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == ' ' || c == '>' || static_cast<unsigned char>(c) >= 0x80;
        pattern += plain ? c : '?';
    }
    return "#{C:" + pattern + "}";
}

std::string format(const Condition& condition) {
    const std::string_view now = "#{T:#{l:%s}}";
    const auto first = static_cast<std::int64_t>(condition.sent) - 1;
    const auto last = static_cast<std::int64_t>(condition.sent + condition.limit);
    // A server that hung, and wakes when the answer is long over, must not type it then, whichever way the
    // clock was set meanwhile.
    auto all = both(fmt::format("#{{e|>=|:{},{}}}", now, first), fmt::format("#{{e|<=|:{},{}}}", now, last));
    all = both(fmt::format("#{{==:{},{}}}", lookFormat(condition.look.tty), lookLine(condition.look)), all);
    for (const auto& line : condition.lines)
        all = both(holdsLine(line), all);
    return all;
}

bool isName(std::string_view text) {
    // Nothing that a format or a command line reads as anything but itself.
    static const RE2 name("[A-Za-z0-9_./:+@-][A-Za-z0-9_./:+@ -]{0,63}");
    return RE2::FullMatch(text, name);
}

/// A number of modes, for one, may be above 1.
std::optional<bool> readFlag(std::string_view text) {
    const auto number = Text::parseInteger(text);
    return number ? std::optional(*number != 0) : std::nullopt;
}

std::vector<std::int64_t> readTimes(std::string_view text) {
    std::vector<std::int64_t> times;
    for (const auto piece : Text::split(text, '/', Text::EmptyPieces::drop)) {
        if (const auto time = Text::parseInteger(piece))
            times.push_back(*time);
    }
    return times;
}

bool isKeys(const RunCommand& command) {
    return command.args.size() >= 4 && command.args[0] == "send-keys" && command.args[1] == "-t";
}

bool isGone(const RunOutput& output) {
    static const RE2 words("can't find (pane|window|session)|no server running|error connecting");
    return RE2::PartialMatch(output.stderrText + output.stdoutText, words);
}

/// Nothing but that somebody typed, or looked: tmux counts a click and a turn to the pane as keys.
bool differsByTyping(const Look& seen, Look now) {
    const bool typed = now.typed != seen.typed;
    now.typed = seen.typed;
    now.now = seen.now;
    return typed && now == seen;
}

std::string difference(const Look& seen, const std::optional<Look>& now, const Condition& condition) {
    if (!now || now->tty != seen.tty || now->panePid != seen.panePid || now->serverPid != seen.serverPid ||
        now->serverStart != seen.serverStart || now->dead)
        return "the pane no longer holds this session";
    if (now->command != seen.command)
        return "another program is in front in the pane";
    if (auto no = stateRefusal(*now))
        return std::move(*no);
    if (now->typed != seen.typed)
        return "somebody types in the pane";
    if (static_cast<double>(now->now) > condition.sent + condition.limit)
        return "tmux took the keys too late";
    return condition.lines.empty() ? "the pane changed" : "the screen changed";
}

} // namespace

bool Look::typedJustNow() const {
    return std::ranges::any_of(typed, [this](std::int64_t time) { return time >= now - 1 && time <= now; });
}

std::optional<RunCommand> look(const std::string& tmux, const std::string& pane, const std::string& tty) {
    static const RE2 terminal("(pts/[0-9]{1,7}|ttys?[A-Za-z0-9]{1,8})");
    if (!RE2::FullMatch(tty, terminal))
        return std::nullopt;
    const auto line = "#{T:#{l:%s}} " + lookFormat("/dev/" + tty);
    return RunCommand{tmux, {"display-message", "-p", "-t", pane, line}, 0};
}

std::optional<Look> parseLook(std::string_view output) {
    const auto line = output.substr(0, output.find('\n'));
    const auto fields = Text::split(line, ' ', Text::EmptyPieces::keep, fieldCount - 1);
    if (fields.size() < fieldCount)
        return std::nullopt;
    const auto now = Text::parseInteger(fields[0]);
    const auto dead = readFlag(fields[3]);
    const auto inMode = readFlag(fields[4]);
    const auto inputOff = readFlag(fields[5]);
    const auto synchronized = readFlag(fields[6]);
    const bool numbers =
        Text::parseInteger(fields[2]) && Text::parseInteger(fields[7]) && Text::parseInteger(fields[8]);
    if (!now || !dead || !inMode || !inputOff || !synchronized || !numbers || !isName(fields[1]) ||
        !isName(fields[10]))
        return std::nullopt;
    return Look{.tty = std::string(fields[1]),
        .panePid = std::string(fields[2]),
        .dead = *dead,
        .inMode = *inMode,
        .inputOff = *inputOff,
        .synchronized = *synchronized,
        .serverStart = std::string(fields[7]),
        .serverPid = std::string(fields[8]),
        .command = std::string(fields[10]),
        .typed = readTimes(fields[9]),
        .now = *now};
}

std::optional<std::string> stateRefusal(const Look& look) {
    if (look.dead)
        return "the pane no longer holds this session";
    if (look.synchronized)
        return "the pane shares its keys with other panes";
    if (look.inMode)
        return "the pane is in a tmux mode: leave it first";
    if (look.inputOff)
        return "the pane takes no keys";
    return std::nullopt;
}

std::vector<std::string> captureWords(const std::string& pane) {
    return {"capture-pane", "-p", "-e", "-t", pane};
}

std::vector<std::string> menuWords(const std::string& pane) {
    return {"capture-pane", "-p", "-t", pane, ";", "display-message", "-p", "-t", pane, "#{pane_width}"};
}

RunCommand waiting(
    const RunCommand& keys, const std::string& ready, const std::vector<std::string>& reading) {
    auto words = reading;
    if (!words.empty())
        words.emplace_back(";");
    words.insert(words.end(), {"display-message", "-p", ready, ";", "source-file", "-"});
    return {keys.path, std::move(words), keys.pauseAfterMs};
}

std::optional<std::string> guarded(const RunCommand& keys, const Condition& condition) {
    if (!isKeys(keys))
        return std::nullopt;
    const auto& pane = keys.args[2];
    std::string send = "send-keys -t " + pane;
    if (const auto literal = literalText(keys)) {
        send += " -l -- " + ShellLine::quote(*literal);
    } else if (keys.args.size() == 4 && isName(keys.args[3])) {
        send += " " + keys.args[3];
    } else {
        return std::nullopt;
    }
    const auto saw = std::string(refusedWord) + "#{T:#{l:%s}} " + lookFormat(condition.look.tty);
    return fmt::format(
        "if-shell -F -t {0} {1} {{ {2} ; display-message -p {3} }} {{ display-message -p -t {0} {4} }}\n",
        pane, ShellLine::quote(format(condition)), send, typedWord, ShellLine::quote(saw));
}

std::optional<std::string> literalText(const RunCommand& keys) {
    if (!isKeys(keys) || keys.args.size() != 6 || keys.args[3] != "-l" || keys.args[4] != "--")
        return std::nullopt;
    return TmuxWord::plain(keys.args[5]);
}

Verdict verdict(const RunOutput& output, const Condition& condition, bool given) {
    const auto gone = "the pane no longer holds this session";
    if (!given)
        return {Verdict::Kind::refused, isGone(output) ? gone : "the terminal did not take the keys"};
    // The user's own hooks may print before it.
    const auto said = Text::split(Text::trimWhitespace(output.stdoutText), '\n').back();
    if (output.succeeded() && said == typedWord)
        return {Verdict::Kind::typed, ""};
    if (said.starts_with(refusedWord)) {
        const auto now = parseLook(said.substr(refusedWord.size()));
        return {Verdict::Kind::refused, difference(condition.look, now, condition),
            now && differsByTyping(condition.look, *now)};
    }
    if (!output.timedOut && isGone(output))
        return {Verdict::Kind::refused, gone};
    return {Verdict::Kind::unknown, "the terminal did not take the keys"};
}

} // namespace kelvadrome::TmuxKeys
