#pragma once

#include "KelvadromeKit/delivery/DeliverJob.h"
#include "KelvadromeKit/delivery/ProcFacts.h"

#include <set>

namespace kelvadrome::DeliverCheck {

/// The one gate before any key: why the job must not go on, in the user's words, or absent when it may.
/// `facts` is a fresh look at `job.pid`, absent when no such process runs. The tests run in a fixed order,
/// and the first that fails gives the words. With `now` in the distant past no job has expired.
std::optional<std::string> refusal(const DeliverJob& job, const std::optional<ProcFacts>& facts,
    const std::set<std::string>& presenceTags, WallTime now);

} // namespace kelvadrome::DeliverCheck
