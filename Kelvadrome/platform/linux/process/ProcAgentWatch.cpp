#include "Kelvadrome/platform/linux/process/ProcAgentWatch.h"

#include "KelvadromeKit/delivery/ProgramName.h"
#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <algorithm>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace kelvadrome {

using ProcessTable::Row;

namespace {

constexpr std::size_t longestAncestry = 32;

/// An exec moves the stack and the arguments; where they may not be read they are 0 both times. A process
/// that is about to end has none any more.
bool isAnother(const Row& first, const Row& now) {
    const bool moved = now.stackStart != first.stackStart || now.argumentsStart != first.argumentsStart;
    return now.started != first.started || (moved && now.stackStart != 0);
}

bool hasEnded(const Row& first, const Row& now) {
    return now.ended() || now.stackStart != first.stackStart;
}

/// The process and those that started it, the nearest first.
std::vector<std::int64_t> withAncestors(const Row& row) {
    std::vector<std::int64_t> pids{row.pid};
    auto next = ProcessTable::row(row.parent);
    while (next && next->pid > 1 && pids.size() < longestAncestry) {
        pids.push_back(next->pid);
        next = ProcessTable::row(next->parent);
    }
    return pids;
}

/// A name for a sentence on a card; a program may give itself any.
std::string nameOf(const Row& row) {
    static const RE2 plain("[A-Za-z0-9._+-]{1,16}");
    return RE2::FullMatch(row.comm, plain) ? row.comm : "another program";
}

/// Whether a key could go to this member of the agent's group. What started the agent (npm, node, a script)
/// shares its input and waits for it; a pager whose input is a pipe reads its keys from where it prints.
bool readsKeys(const Row& member, const std::string& tty, bool startedTheAgent) {
    switch (ProcessTable::holdOn(member.pid, tty)) {
    case ProcessTable::Hold::none:
        return false;
    case ProcessTable::Hold::asOutput:
        return ProcessTable::waitsForTerminal(member.pid);
    case ProcessTable::Hold::asInput:
        return !startedTheAgent || ProcessTable::waitsForTerminal(member.pid);
    case ProcessTable::Hold::hidden:
        break;
    }
    return !startedTheAgent;
}

std::optional<std::string> companyRefusal(const Row& agent) {
    const auto above = withAncestors(agent);
    for (const auto& member : ProcessTable::group(agent.foregroundGroup)) {
        if (member.ended())
            continue;
        if (member.stopped())
            return "the agent is suspended";
        const bool startedTheAgent = std::ranges::find(above, member.pid) != above.end();
        if (member.pid != agent.pid && readsKeys(member, *agent.tty, startedTheAgent))
            return fmt::format("{} reads from the agent's terminal", nameOf(member));
    }
    return std::nullopt;
}

struct Input {
    bool editsLines = false; // the terminal itself, before a program reads
    int waiting = 0;         // bytes that nobody has read yet
};
std::optional<Input> inputOf(const std::string& tty) {
    const auto path = "/dev/" + tty;
    const Descriptor terminal(::open(path.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    termios mode{};
    Input input;
    if (!terminal || ::tcgetattr(terminal.get(), &mode) != 0 ||
        ::ioctl(terminal.get(), FIONREAD, &input.waiting) != 0)
        return std::nullopt;
    input.editsLines = (mode.c_lflag & ICANON) != 0;
    return input;
}

/// For one line: a program may give itself any name, an end of line among it.
std::string lineName(std::string name) {
    for (char& c : name) {
        if (static_cast<unsigned char>(c) < ' ' || c == 127)
            c = '?';
    }
    return name;
}

} // namespace

/// Steps of one job come one after the other; the lock is for those that were left behind.
struct ProcAgentWatch::State {
    enum class Kind { itself, another, ended };
    struct Look {
        Kind kind = Kind::ended;
        Row row;
    };

    explicit State(std::optional<std::int64_t> agent) : pid(agent) {}

    /// The agent as it is. The first look is the one that counts.
    Look look() {
        auto now = pid ? ProcessTable::row(*pid) : std::nullopt;
        const std::lock_guard guard(lock);
        if (!now)
            return {};
        if (!first)
            first = now;
        if (isAnother(*first, *now))
            return {Kind::another, std::move(*now)};
        return {hasEnded(*first, *now) ? Kind::ended : Kind::itself, std::move(*now)};
    }

    /// Why this look at the agent alone speaks against a key.
    std::optional<std::string> refusalOf(const Look& look) {
        if (look.kind == Kind::another)
            return "the agent process changed";
        if (look.kind == Kind::ended)
            return "the agent process ended";
        if (look.row.stopped())
            return "the agent is suspended";
        if (const std::lock_guard guard(lock); look.row.tty != first->tty || look.row.group != first->group)
            return "the session moved to another terminal";
        if (!look.row.tty || look.row.foregroundGroup != look.row.group)
            return "the agent is not in the foreground of its terminal";
        return std::nullopt;
    }

    std::optional<std::string> refusal() {
        const auto early = look();
        if (auto no = refusalOf(early))
            return no;
        if (ProcessTable::hasNamesake(early.row.pid, *early.row.tty))
            return "the agent's terminal is another one of the same name";
        if (auto no = companyRefusal(early.row))
            return no;
        // The look at its company took milliseconds; this one is the last before the key.
        return refusalOf(look());
    }

    const std::optional<std::int64_t> pid;
    std::mutex lock;
    std::optional<Row> first;
};

ProcAgentWatch::ProcAgentWatch(std::optional<std::int64_t> pid, BackgroundPool& pool)
    : pool_(pool), state_(std::make_shared<State>(pid)) {}

ProcAgentWatch::~ProcAgentWatch() = default;

Task<std::optional<std::string>> ProcAgentWatch::psLine() {
    auto work = [state = state_]() -> std::optional<std::string> {
        if (::access("/proc/self/stat", R_OK) != 0)
            return std::nullopt;
        const auto [kind, row] = state->look();
        if (kind != State::Kind::itself)
            return "";
        return fmt::format("{} {} {} {} {}\n", row.pid, row.group, row.foregroundGroup, row.tty.value_or("?"),
            lineName(programName(row.comm, ProcessTable::arguments(row.pid))));
    };
    co_return co_await pool_.run(std::move(work));
}

std::optional<std::string> ProcAgentWatch::refusalNow() {
    return state_->refusal();
}

Task<std::optional<std::string>> ProcAgentWatch::doubt(bool toldToEnd) {
    auto work = [state = state_, toldToEnd]() -> std::optional<std::string> {
        auto no = state->refusal();
        // It may go between two looks as well, so that the last of them counts.
        const bool wentAsTold = toldToEnd && state->look().kind == State::Kind::ended;
        return wentAsTold ? std::nullopt : no;
    };
    co_return co_await pool_.run(std::move(work));
}

Task<bool> ProcAgentWatch::hasRead() {
    auto work = [state = state_] {
        const auto [kind, row] = state->look();
        const auto input = kind == State::Kind::itself && row.tty ? inputOf(*row.tty) : std::nullopt;
        return !input || input->waiting == 0;
    };
    co_return co_await pool_.run(std::move(work));
}

Task<bool> ProcAgentWatch::tookInput() {
    auto work = [state = state_] {
        const auto [kind, row] = state->look();
        const auto input = kind == State::Kind::itself && row.tty ? inputOf(*row.tty) : std::nullopt;
        return input && !input->editsLines && input->waiting == 0;
    };
    co_return co_await pool_.run(std::move(work));
}

Task<std::optional<TmuxServer>> ProcAgentWatch::tmuxServer() {
    auto work = [state = state_]() -> std::optional<TmuxServer> {
        const auto [kind, row] = state->look();
        std::optional<std::string> text;
        if (kind == State::Kind::itself) {
            // One that hides its environment has it from what started it.
            for (const auto pid : withAncestors(row)) {
                text = ProcessTable::variable(pid, "TMUX");
                if (text)
                    break;
            }
        }
        // "SOCKET,PID,SESSION"; a path may hold commas.
        static const RE2 form("(/.*),([0-9]+),[0-9]+");
        TmuxServer server;
        if (!text || !RE2::FullMatch(*text, form, &server.socket, &server.pid))
            return std::nullopt;
        return server;
    };
    co_return co_await pool_.run(std::move(work));
}

Task<bool> ProcAgentWatch::isOwnSocket(std::string path) {
    auto work = [path = std::move(path)] {
        struct stat found {};
        return ::stat(path.c_str(), &found) == 0 && S_ISSOCK(found.st_mode) && found.st_uid == ::geteuid();
    };
    co_return co_await pool_.run(std::move(work));
}

} // namespace kelvadrome
