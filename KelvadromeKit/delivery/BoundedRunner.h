#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/support/Clock.h"

#include <memory>

namespace kelvadrome {

/// Gives every command an end: one that isn't over by its limit and a grace is left behind and counts as
/// stopped, whoever still holds its output open. (A tmux server that hangs holds that of its clients.) So one
/// job that hangs never stops those after it.
class BoundedRunner final : public CommandRunning {
public:
    static constexpr double grace = 1.0; // seconds after the limit, at which the command was asked to stop

    /// `inner` ends soon when it is cancelled.
    BoundedRunner(std::shared_ptr<CommandRunning> inner, std::shared_ptr<Clock> clock)
        : inner_(std::move(inner)), clock_(std::move(clock)) {}

    Task<RunOutput> run(RunCommand command, double timeout) override;

private:
    const std::shared_ptr<CommandRunning> inner_;
    const std::shared_ptr<Clock> clock_;
};

} // namespace kelvadrome
