#pragma once

#include "KelvadromeKit/delivery/DeliverJob.h"
#include "KelvadromeKit/delivery/ProcFacts.h"

#include <set>

namespace kelvadrome::test {

/// An answer that passes every check, together with `claudeFacts` and `presenceTags`.
inline DeliverJob answerJob(std::vector<DeliverStep> steps = {DeliverStep::key("1")}) {
    DeliverJob job;
    job.id = "j1";
    job.type = "answer";
    job.agent = "claude";
    job.pid = 501;
    job.pgid = 501;
    job.tty = "ttys004";
    job.host = "tmux";
    job.hostRef = "%3";
    job.steps = std::move(steps);
    job.presence = "tag";
    job.expiresAt = "2026-01-31T09:30:00Z";
    return job;
}

inline DeliverJob trustJob(std::string want = "trust") {
    auto job = answerJob({DeliverStep::nav("down"), DeliverStep::nav("enter")});
    job.screen = DeliverJob::Screen{"claude_trust", std::move(want), "/Users/me/p"};
    return job;
}

inline ProcFacts claudeFacts() {
    return {501, 501, 501, "ttys004", "/usr/local/bin/claude"};
}

inline const std::set<std::string> presenceTags{"tag"};
inline const WallTime beforeExpiry = wallTime(1769851700); // 100 seconds

} // namespace kelvadrome::test
