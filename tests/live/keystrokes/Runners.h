#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"

#include "tests/live/keystrokes/Stage.h"

#include <chrono>
#include <functional>
#include <memory>

namespace kelvadrome::test {

/// Stands before a runner and tells of each key, once all has been looked at that this runner's caller looks
/// at.
class Watched final : public CommandRunning {
public:
    /// Gets when the last look began, on the steady clock.
    using BeforeKey = std::function<void(std::chrono::steady_clock::time_point)>;

    Watched(std::shared_ptr<CommandRunning> inner, BeforeKey beforeKey)
        : inner_(std::move(inner)), beforeKey_(std::move(beforeKey)) {}

    Task<RunOutput> run(RunCommand command, double timeout) override;

private:
    std::shared_ptr<CommandRunning> inner_;
    BeforeKey beforeKey_;
};

/// The runner that a job gets in the program. `asked` is called before the gate gets a key's command, and
/// `sent` when the gate has looked for the last time and hands the key to tmux; both may come on any thread,
/// one after the other.
std::shared_ptr<CommandRunning> runnerFor(const DeliverJob& job, const Stage& stage, BackgroundPool& pool,
    std::shared_ptr<Clock> clock, Watched::BeforeKey asked, Watched::BeforeKey sent);

} // namespace kelvadrome::test
