#pragma once

#include "Kelvadrome/model/RunningApps.h"
#include "KelvadromeKit/delivery/AutomationPrompter.h"
#include "KelvadromeKit/delivery/HostAccess.h"
#include "KelvadromeKit/delivery/LiveExecutor.h"
#include "KelvadromeKit/page/PageSession.h"
#include "KelvadromeKit/support/TaskBag.h"

#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// The long-running side of delivery: claims jobs and sees each through, one at a time, and tells the daemon
/// every 5 seconds which terminal sessions exist and whether they can be reached. Lives on the main executor,
/// held by shared_ptr; its loops hold it weakly and no error ends them.
class DeliverService : public std::enable_shared_from_this<DeliverService> {
public:
    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        std::shared_ptr<PageSession> session;
        /// What a job's commands go through; without it, what `live` has.
        std::function<std::shared_ptr<CommandRunning>(const DeliverJob&)> runnerFor = {};
        LiveExecutor live;
        std::shared_ptr<AutomationPrompter> prompter;
        HostAccessProbe probe;
        std::shared_ptr<RunningApps> apps;
    };

    explicit DeliverService(Dependencies dependencies);

    /// Starts both loops; again, nothing.
    void start();
    /// Ends both for good, with a job under way at its next wait.
    void stop();
    /// Takes no further job, gives the one under way `limit` seconds to end and be reported, and stops. For
    /// the end of the process: half an answer must not stay at an agent's prompt without a word.
    Task<> finish(double limit);

    /// The last job's type and outcome, such as "answer done".
    const std::optional<std::string>& lastOutcome() const { return lastOutcome_; }

private:
    static Task<> claimLoop(std::weak_ptr<DeliverService> weak, std::shared_ptr<PageSession> session,
        std::shared_ptr<Clock> clock);
    static Task<> hostsLoop(std::weak_ptr<DeliverService> weak, std::shared_ptr<Clock> clock);
    Task<> handle(DeliverJob job);
    Task<> seeThrough(DeliverJob job);
    Task<> reportHosts();
    Task<> askWhereAgentsRun(std::map<std::string, HostAccess> access);
    Task<> labelTabs();

    const Dependencies with_;
    TaskBag tasks_;
    bool started_ = false;
    bool finishing_ = false;
    bool busy_ = false;                // a job is under way
    std::function<void(bool)> onIdle_; // ends the wait for it
    std::optional<std::string> lastOutcome_;

    // What the daemon accepted last. The time is uptime: a clock that is set back must not silence the
    // report.
    LiveExecutor::Hosts lastHosts_;
    double lastHostsSent_ = -std::numeric_limits<double>::infinity();
    std::map<std::string, std::string> labelled_; // iTerm2 session id to the name that its tab got last
};

} // namespace kelvadrome
