#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/delivery/DeliverJob.h"
#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Files.h"

#include <map>
#include <memory>
#include <string>

namespace kelvadrome {

/// What the commands of delivery go through on this machine: real children, none of which is waited for
/// without an end, and for the commands of a job a gate of its own. Any executor.
class DeliveryRunners {
public:
    /// The pool outlives it. `innermost` stands in for the runner of real children.
    DeliveryRunners(BackgroundPool& pool, const std::map<std::string, std::string>& environment,
        std::shared_ptr<Clock> clock, std::shared_ptr<CommandRunning> innermost = nullptr);

    /// For commands that belong to no job.
    std::shared_ptr<CommandRunning> plain() const { return bounded_; }
    std::shared_ptr<CommandRunning> forJob(const DeliverJob& job) const;

private:
    BackgroundPool& pool_;
    const std::shared_ptr<Clock> clock_;
    const std::shared_ptr<CommandRunning> bounded_;
};

} // namespace kelvadrome
