#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Files.h"

#include <map>
#include <memory>
#include <string>

namespace kelvadrome {

/// Runs the commands of delivery as real children: without input (but for a late one), and with a deadline at
/// which they are asked to stop, once. A child that doesn't stop, or whose own children keep its output open,
/// is waited for all the same. Nothing of this process but its environment reaches a child.
class ProcessRunner final : public CommandRunning {
public:
    /// The pool outlives the runner; each run takes one of its threads.
    explicit ProcessRunner(BackgroundPool& pool,
        const std::map<std::string, std::string>& environment = Files::processEnvironment());

    /// Cancelling the caller asks the child to stop and waits for it no longer than a moment.
    Task<RunOutput> run(RunCommand command, double timeout) override;

private:
    BackgroundPool& pool_;
    const std::shared_ptr<const std::map<std::string, std::string>> environment_;
};

} // namespace kelvadrome
