#pragma once

#include "KelvadromeKit/daemon/ChildProcess.h"
#include "KelvadromeKit/daemon/DaemonEnvironment.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <span>
#include <stdexcept>

namespace kelvadrome {

/// Makes sure that a healthy daemon answers on the socket: one that is there already, the login item's, or a
/// child of this process. "Healthy" means that it answers GET /v1/health with a Health record; a process that
/// merely runs isn't.
///
/// State lives on a strand of its own; the public operations hop there and may be called from anywhere. They
/// suspend between steps, and other calls and the child's end run in between. No operation throws. The object
/// is held by shared_ptr: operations under way keep it alive, the child's callbacks don't.
class DaemonSupervisor : public std::enable_shared_from_this<DaemonSupervisor> {
public:
    enum class Mode {
        starting, // no daemon answers yet, and that isn't a failure so far
        attached, // a daemon answers that isn't this process's child
        spawned,  // the daemon is this process's healthy child
        failed,   // given up; `lastError` says why
    };

    struct Status {
        Mode mode = Mode::starting;
        std::optional<std::string> nodePath = {};    // chosen at the last spawn
        std::optional<std::string> nodeVersion = {}; // the first line of its "--version"
        std::optional<std::int32_t> childPid = {};
        std::int64_t restarts = 0;                 // automatic ones, since this object was made
        std::optional<std::string> lastError = {}; // text for a person
        std::vector<std::string> logTail = {}; // the child's last lines: at most 40 of at most 300 characters

        bool operator==(const Status&) const = default;
    };

    /// Why no child could be started, in words for a person.
    class SpawnError : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
        std::string description() const { return what(); }
    };

    struct World {
        Executor executor; // the strand is made from it
        BackgroundPool* pool = nullptr;
        std::shared_ptr<Clock> clock;
        std::shared_ptr<ChildLauncher> launcher;
        std::string loginItemLog = {}; // the path of the log where the login item's daemon says why it ends
    };

    /// `client` speaks to `env.socketPath()`.
    DaemonSupervisor(DaemonEnvironment env, DaemonClient client, World world,
        EnvironmentMap processEnvironment = Files::processEnvironment());

    const DaemonEnvironment& env() const { return env_; }

    Task<Status> currentStatus();
    /// The login item owns the daemon: no child is to be started.
    Task<> setLaunchdOwned(bool owned);
    /// Finds a daemon or starts one, and waits up to `timeout` seconds for its health.
    Task<Status> start(double timeout);
    /// To be called each time a health check has failed: waits a little, restarts with a growing pause, or
    /// gives up.
    Task<Status> recover();
    /// Ends the child, if there is one: SIGTERM, about 3 s later SIGKILL. A daemon that isn't a child runs
    /// on.
    Task<> stop();

private:
    using Self = std::shared_ptr<DaemonSupervisor>;
    static Task<Status> statusOn(Self self);
    static Task<> ownedOn(Self self, bool owned);
    static Task<Status> startOn(Self self, double timeout);
    static Task<Status> recoverOn(Self self);
    static Task<> stopOn(Self self);

    Task<Status> bringUp(double timeout);
    Task<Status> recoverHere();
    Task<Status> awaitLoginItem(double timeout);
    Task<bool> isHealthy(double timeout);
    Task<> spawnChild();
    void launch(std::string node, std::vector<std::string> arguments);
    Task<> waitHealthy(double timeout);
    Task<> stopOwnedChild();
    Task<ChildLauncher::Output> askForVersion(std::string node);
    Task<> markLoginItemLog();
    Task<std::string> withLoginItemsReason(std::string words);
    Task<> waitOut(double seconds);
    void appendLog(std::string_view text);
    std::span<const std::string> saidOfLate() const;
    void childEnded(std::int32_t code, std::uint64_t launch);
    bool childRuns() const { return process_ && process_->isRunning(); }

    const DaemonEnvironment env_;
    const DaemonClient client_;
    const World world_;
    const EnvironmentMap processEnvironment_;
    const Executor strand_;

    // On the strand.
    std::shared_ptr<ChildProcess> process_; // holds the write end of the child's standard input
    std::uint64_t launches_ = 0;            // tells the present child's end from that of one before it
    std::size_t linesOfLaunch_ = 0;         // that the child launched last has written
    std::uint64_t stops_ = 0;               // calls of stop, so that a recovery under way sees one
    Status status_;
    bool stopping_ = false;            // a stop is intended, so the child's exit isn't news
    std::vector<double> restartTimes_; // uptimes of recent restart decisions
    int unhealthyChecks_ = 0;          // failed checks in a row with a child that runs
    bool launchdOwned_ = false;
    off_t loginItemLogRead_ = 0; // bytes of its log from before its daemon last answered or was waited for
};

std::string_view rawValue(DaemonSupervisor::Mode mode); // the enumerator's name

} // namespace kelvadrome
