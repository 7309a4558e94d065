#pragma once

#include "Kelvadrome/platform/linux/process/ProcessTable.h"
#include "KelvadromeKit/delivery/AgentWatch.h"
#include "KelvadromeKit/support/BackgroundPool.h"

#include <mutex>

namespace kelvadrome {

/// The agent as /proc has it.
class ProcAgentWatch final : public AgentWatch {
public:
    /// `pid` is the agent's; without one everything speaks against a key. The pool outlives the watch.
    ProcAgentWatch(std::optional<std::int64_t> pid, BackgroundPool& pool);
    ~ProcAgentWatch() override;

    Task<std::optional<std::string>> psLine() override;
    std::optional<std::string> refusalNow() override;
    Task<std::optional<std::string>> doubt(bool toldToEnd) override;
    Task<bool> hasRead() override;
    Task<bool> tookInput() override;
    Task<std::optional<TmuxServer>> tmuxServer() override;
    Task<bool> isOwnSocket(std::string path) override;

private:
    struct State;

    BackgroundPool& pool_;
    const std::shared_ptr<State> state_; // shared with the pool's threads
};

} // namespace kelvadrome
