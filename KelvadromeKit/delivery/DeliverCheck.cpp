#include "KelvadromeKit/delivery/DeliverCheck.h"

#include "KelvadromeKit/delivery/LiveText.h"

namespace kelvadrome::DeliverCheck {

namespace {

using Refusal = std::optional<std::string>;

constexpr std::size_t maxSteps = 4;

Refusal refusalOfOpen(const DeliverJob& job) {
    if (!job.open)
        return "nothing to open";
    if (job.open->prompt && !LiveText::isFit(*job.open->prompt))
        return "text refused";
    return std::nullopt;
}

Refusal refusalOfPeek(const DeliverJob& job) {
    const bool readable =
        job.screen && job.screen->profile == "claude_trust" && job.screen->folder && job.agent == "claude";
    return readable ? Refusal() : "nothing to read";
}

Refusal refusalOfStep(const DeliverStep& step, bool onScreenQuestion) {
    switch (step.kind) {
    case DeliverStep::Kind::text:
        return LiveText::isFit(step.value) ? Refusal() : "text refused";
    case DeliverStep::Kind::key:
        return LiveText::isMenuKey(step.value) ? Refusal() : "bad key";
    case DeliverStep::Kind::nav:
        return onScreenQuestion ? Refusal() : "bad key";
    case DeliverStep::Kind::escape:
        break;
    }
    return std::nullopt;
}

Refusal refusalOfKeys(const DeliverJob& job) {
    if (!job.steps || job.steps->empty() || job.steps->size() > maxSteps)
        return "no keys to type";
    for (const auto& step : *job.steps) {
        if (auto refusal = refusalOfStep(step, job.screen.has_value()))
            return refusal;
    }
    if (!job.screen)
        return std::nullopt;
    const auto want = job.screen->want.value_or("");
    const bool sound =
        job.screen->profile == "claude_trust" && (want == "trust" || want == "exit") && job.screen->folder;
    return sound ? Refusal() : "bad key";
}

Refusal refusalOfQueue(const DeliverJob& job, const std::optional<ProcFacts>& facts) {
    if (!job.pid)
        return "no Codex process to queue for";
    if (!facts || facts->pid != *job.pid || !facts->isAgent("codex"))
        return "the Codex process ended";
    return std::nullopt;
}

/// Each comparison stops one way in which keys could reach somebody else: the pid a recycled process id, the
/// name another program under that pid, the terminal a session that moved, the group a restart, and the
/// foreground group a shell in front of the agent.
Refusal refusalOfProcess(const DeliverJob& job, const std::optional<ProcFacts>& facts) {
    if (!job.pid || !job.tty)
        return job.type == "focus" ? Refusal() : "no session to type into";
    if (!facts || facts->pid != *job.pid)
        return "the agent process ended";
    if (!facts->isAgent(job.agent))
        return "the process on this terminal is not " + job.agent;
    if (!facts->tty || *facts->tty != *job.tty)
        return "the session moved to another terminal";
    if (job.type != "answer" && job.type != "peek")
        return std::nullopt;
    if (job.pgid && *job.pgid != facts->pgid)
        return "the agent process changed";
    if (!facts->foreground())
        return "the agent is not in the foreground of its terminal";
    return std::nullopt;
}

} // namespace

std::optional<std::string> refusal(const DeliverJob& job, const std::optional<ProcFacts>& facts,
    const std::set<std::string>& presenceTags, WallTime now) {
    if (const auto expiry = job.expiry(); expiry && *expiry < now)
        return "the job expired";
    if (!presenceTags.contains(job.presence))
        return "the answer was not pressed in this app";
    if (job.type == "open")
        return refusalOfOpen(job);
    if (job.type == "peek") {
        if (auto refusal = refusalOfPeek(job))
            return refusal;
    }
    if (job.type == "answer") {
        if (auto refusal = refusalOfKeys(job))
            return refusal;
        if (job.isCodexQueue())
            return refusalOfQueue(job, facts);
    }
    return refusalOfProcess(job, facts);
}

} // namespace kelvadrome::DeliverCheck
