#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Files.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

/// Runs real children: without input (but for a late one), with an end to what is kept of their output, and
/// with a deadline at which they are asked to stop, once. A child that doesn't stop, or whose own children
/// keep its output open, is waited for all the same. Nothing of this process but its environment reaches a
/// child.
class ProcessRunner final : public CommandRunning {
public:
    static constexpr std::size_t keptOutput = 1'000'000; // bytes
    static constexpr std::size_t keptErrors = 2'048;     // bytes

    /// Children get `environment` with NO_COLOR set to "1". The pool outlives the runner; each run takes one
    /// of its threads.
    explicit ProcessRunner(BackgroundPool& pool,
        const std::map<std::string, std::string>& environment = Files::processEnvironment());

    /// A signal's death gives the signal's number as the status. Cancelling the caller asks the child to stop
    /// and waits for it no longer than a moment.
    Task<RunOutput> run(RunCommand command, double timeout) override;

private:
    BackgroundPool& pool_;
    std::shared_ptr<const std::vector<std::string>> environment_; // "NAME=value"
};

} // namespace kelvadrome
