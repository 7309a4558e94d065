#include "KelvadromeKit/delivery/LiveExecutor.h"

#include "KelvadromeKit/delivery/DeliverCheck.h"
#include "KelvadromeKit/delivery/LiveScripts.h"
#include "KelvadromeKit/delivery/ShellLine.h"

#include <fmt/format.h>

#include <array>

namespace kelvadrome {

namespace {

constexpr double psLimit = 3.0; // seconds, as all limits here
constexpr double preflightLimit = 3.0;
constexpr double queueLimit = 15.0;
constexpr double focusLimit = 5.0;
constexpr double openLimit = 10.0;
constexpr double freshFor = 0.5; // how old a look at the terminal may be when the first key goes out

RunCommand scriptCommand(std::string_view script, std::string argument) {
    return {std::string(HostPlan::osascript), {"-e", std::string(script), std::move(argument)}, 0};
}

std::optional<RunCommand> focusCommand(const DeliverJob& job, const HostPlan::Bins& bins) {
    if (job.host == "iterm2")
        return scriptCommand(LiveScripts::itermFocus, "/dev/" + *job.tty);
    if (job.host == "terminal")
        return scriptCommand(LiveScripts::terminalFocus, "/dev/" + *job.tty);
    const auto tool = bins.find(job.host);
    if (tool == bins.end() || !job.hostRef)
        return std::nullopt;
    if (job.host == "tmux" && HostPlan::isTmuxPane(*job.hostRef))
        return RunCommand{tool->second, {"select-pane", "-t", *job.hostRef}, 0};
    if (job.host == "herdr" && HostPlan::isHerdrPane(*job.hostRef))
        return RunCommand{tool->second, {"agent", "focus", *job.hostRef}, 0};
    return std::nullopt;
}

} // namespace

HostPlan::Bins LiveExecutor::findBins(
    const std::string& home, const std::function<bool(const std::string&)>& isExecutable) {
    HostPlan::Bins bins;
    for (const std::string tool : {"tmux", "herdr", "codex", "claude"}) {
        const std::array folders{home + "/.local/bin", std::string("/opt/homebrew/bin"),
            std::string("/usr/local/bin"), home + "/." + tool + "/bin", std::string("/usr/bin")};
        for (const auto& folder : folders) {
            const auto path = folder + "/" + tool;
            if (isExecutable(path)) {
                bins.emplace(tool, path);
                break;
            }
        }
    }
    return bins;
}

Task<std::optional<ProcFacts>> LiveExecutor::facts(std::optional<std::int64_t> pid) const {
    if (!pid)
        co_return std::nullopt;
    RunCommand ps{"/bin/ps", {"-o", "pid=,pgid=,tpgid=,tty=,comm=", "-p", std::to_string(*pid)}, 0};
    const auto output = co_await runner->run(std::move(ps), psLimit);
    co_return ProcFacts::parse(output.stdoutText);
}

Task<JobOutcome> LiveExecutor::perform(
    DeliverJob job, std::set<std::string> presenceTags, WallTime now, Start start) const {
    auto outcome = co_await attempt(carryOut(std::move(job), std::move(presenceTags), now, std::move(start)));
    // Short of memory or threads, say, and perhaps between two keys: nobody can tell.
    if (!outcome && !isCancellation(outcome.error()))
        co_return JobOutcome::failed("the delivery broke off");
    co_return outcome.take();
}

Task<JobOutcome> LiveExecutor::carryOut(
    DeliverJob job, std::set<std::string> presenceTags, WallTime now, Start start) const {
    const auto found = co_await facts(job.pid);
    if (auto refusal = DeliverCheck::refusal(job, found, presenceTags, now))
        co_return JobOutcome::refused(std::move(*refusal));

    if (job.type == "focus" || job.type == "open") {
        auto stop = co_await start();
        if (stop)
            co_return JobOutcome::refused(std::move(*stop));
        auto effect = job.type == "focus" ? focus(job) : open(job);
        co_return co_await std::move(effect);
    }
    if (job.type == "peek") {
        const auto match = co_await trustScreen(job);
        co_return JobOutcome{"done", match ? "trust:" + match->selected : "none"};
    }
    auto answer =
        job.screen ? trustAnswer(job, start, [clock = clock] { return clock->now(); }) : type(job, start);
    co_return co_await std::move(answer);
}

Task<JobOutcome> LiveExecutor::focus(DeliverJob job) const {
    if (!job.tty)
        co_return JobOutcome::refused("no terminal to focus");
    auto command = focusCommand(job, bins);
    if (!command)
        co_return JobOutcome::refused("this terminal cannot be focused");
    auto given = co_await give(std::move(*command), focusLimit, "focus failed", false);
    co_return given.end ? std::move(*given.end) : JobOutcome::done();
}

Task<JobOutcome> LiveExecutor::open(DeliverJob job) const {
    const auto refused = JobOutcome::refused("the resume command is not 1 of the fixed templates");
    if (!job.open)
        co_return refused;
    const auto argv = ShellLine::openArgv(job.open->cwd, job.open->argv, job.open->prompt);
    const auto line = ShellLine::open(job.open->cwd, job.open->argv, job.open->prompt);
    if (!argv || !line)
        co_return refused;
    if (!Files::isFolder(job.open->cwd))
        co_return JobOutcome::refused("the session folder is gone");

    if (job.host == "tmux") {
        auto command = HostPlan::tmuxOpen(job, *argv, bins);
        if (!command)
            co_return JobOutcome::refused("tmux or the agent was not found");
        const auto output = co_await runner->run(std::move(*command), openLimit);
        co_return output.succeeded() ? JobOutcome::done()
                                     : JobOutcome::failed("tmux did not open the session");
    }
    auto command = scriptCommand(LiveScripts::itermOpen, *line);
    const auto output = co_await runner->run(std::move(command), openLimit);
    const bool opened = output.succeeded() && output.stdoutText.find("ok") != std::string::npos;
    co_return opened ? JobOutcome::done() : JobOutcome::failed("iTerm2 did not open the window");
}

Task<JobOutcome> LiveExecutor::type(DeliverJob job, Start start) const {
    auto plan = HostPlan::commands(job, bins);
    if (!plan || plan->empty())
        co_return JobOutcome::refused(job.host + " cannot take this answer here");
    auto refusal = co_await firstKeyRefusal(job);
    if (refusal)
        co_return JobOutcome::refused(std::move(*refusal));
    const double looked = clock->uptime();
    auto stop = co_await start();
    if (stop)
        co_return JobOutcome::refused(std::move(*stop));
    if (clock->uptime() - looked > freshFor) {
        // The daemon took its time, in which the agent may have ended.
        refusal = co_await firstKeyRefusal(job);
        if (refusal)
            co_return JobOutcome::refused(std::move(*refusal));
    }
    co_return co_await typePlan(std::move(job), std::move(*plan));
}

Task<JobOutcome> LiveExecutor::typePlan(DeliverJob job, std::vector<RunCommand> plan) const {
    const bool queue = job.isCodexQueue();
    for (std::size_t i = 0; i < plan.size(); ++i) {
        auto given = co_await give(plan[i], queue ? queueLimit : keyLimit,
            queue ? "codex queue did not accept the message" : "the terminal did not take the keys", i == 0);
        if (given.end)
            co_return std::move(*given.end);
        co_await pauseAfterKey(static_cast<double>(plan[i].pauseAfterMs) / 1000, given.secondsSince);
        if (queue || i + 1 == plan.size())
            continue;
        const auto gone = co_await processRefusal(job);
        if (gone) {
            co_return JobOutcome::failed(
                fmt::format("stopped after {} of {} steps: {}", i + 1, plan.size(), *gone));
        }
    }
    co_return JobOutcome::done(queue ? "codex_queue" : "host");
}

/// Runs one command of a terminal. When it doesn't take it the job ends, with `words` where there is no
/// verdict. A `first` command that failed pressed nothing, unless it was stopped on its way or says
/// otherwise.
Task<LiveExecutor::Given> LiveExecutor::give(
    RunCommand command, double timeout, std::string words, bool first) const {
    const bool script = command.path == HostPlan::osascript;
    const auto output = co_await runner->run(std::move(command), timeout);
    std::optional<std::string> why = output.refusal;
    if (!why && script)
        why = HostPlan::scriptRefusal(output.stdoutText);
    if (!why && !output.succeeded())
        why = std::move(words);
    Given given;
    given.secondsSince = output.secondsSince;
    const bool nothingPressed = first && !output.timedOut && !output.mayHaveActed;
    if (why)
        given.end =
            nothingPressed ? JobOutcome::refused(std::move(*why)) : JobOutcome::failed(std::move(*why));
    co_return given;
}

/// The agent draws from the moment of the key on, so that looks after it take nothing from its time.
Task<> LiveExecutor::pauseAfterKey(double pause, double secondsSince) const {
    co_await clock->sleep(pause - secondsSince);
}

/// All that is looked at before the first key; what follows it looks at the process alone.
Task<std::optional<std::string>> LiveExecutor::firstKeyRefusal(DeliverJob job) const {
    if (job.isCodexQueue())
        co_return std::nullopt;
    if (auto preflight = HostPlan::preflight(job, bins)) {
        const auto output = co_await runner->run(std::move(*preflight), preflightLimit);
        if (output.refusal)
            co_return output.refusal;
        if (!output.succeeded() || !HostPlan::preflightPasses(job, output.stdoutText))
            co_return "the pane no longer holds this session";
    }
    auto refusal = co_await processRefusal(job);
    if (refusal)
        co_return "before the first key: " + *refusal;
    co_return std::nullopt;
}

/// The process tests alone, on fresh facts: presence and expiry were judged before the daemon said go.
Task<std::optional<std::string>> LiveExecutor::processRefusal(DeliverJob job) const {
    const auto found = co_await facts(job.pid);
    co_return DeliverCheck::refusal(job, found, {job.presence}, distantPast);
}

} // namespace kelvadrome
