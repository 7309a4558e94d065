#pragma once

#include "KelvadromeKit/delivery/FlagStore.h"
#include "KelvadromeKit/delivery/TerminalApp.h"
#include "KelvadromeKit/support/Task.h"

#include <functional>
#include <memory>
#include <set>
#include <string>

namespace kelvadrome {

/// The system's consent question for scripting an app, named by bundle id. `check` never shows anything;
/// `request` may show the question and then lasts for as long as the user leaves it open.
struct AutomationProbe {
    std::function<ConsentCode(std::string)> check;
    std::function<Task<ConsentCode>(std::string)> request;
    std::function<bool()> screenLocked;
};

/// Keeps the consent question under control: one at a time per app, never on a locked screen, and by itself
/// at most once per app ever. Its state lives on a strand of its own; its calls may be awaited from any
/// executor, and interleave while a question is open. Held by shared_ptr; a call under way keeps it alive.
class AutomationPrompter : public std::enable_shared_from_this<AutomationPrompter> {
public:
    struct RequestResult {
        enum class Kind { status, screenLocked, alreadyAsking };

        Kind kind = Kind::status;
        AutomationStatus status = AutomationStatus::unknown; // of kind `status`

        bool operator==(const RequestResult&) const = default;
    };

    /// `executor` carries the strand and runs `probe.check`, which may block for a second.
    AutomationPrompter(Executor executor, AutomationProbe probe, std::shared_ptr<FlagStore> flags);

    /// Never asks.
    Task<AutomationStatus> status(TerminalApp app);
    /// For a press of the user's: asks when there is something to ask.
    Task<RequestResult> request(TerminalApp app);
    /// Asks by itself when an agent runs in the app, the user hasn't answered and it never asked before.
    /// Absent when it doesn't ask.
    Task<std::optional<AutomationStatus>> autoRequestIfNeeded(TerminalApp app, bool agentSessionRunning);

    /// The flag that says that the question was asked without a press.
    static std::string autoKey(TerminalApp app);

private:
    using Self = std::shared_ptr<AutomationPrompter>;
    static Task<AutomationStatus> statusOn(Self self, TerminalApp app);
    static Task<RequestResult> requestOn(Self self, TerminalApp app);
    static Task<std::optional<AutomationStatus>> autoRequestOn(Self self, TerminalApp app, bool agentRunning);
    static Task<AutomationStatus> ask(Self self, std::string bundle);

    Executor strand_;
    AutomationProbe probe_;
    std::shared_ptr<FlagStore> flags_;
    std::set<std::string> inFlight_; // bundle ids with a question open; on the strand only
};

} // namespace kelvadrome
