#pragma once

#include "Kelvadrome/model/Collaborators.h"
#include "KelvadromeKit/daemon/ChildProcess.h"
#include "KelvadromeKit/relay/RelayConnectorPlan.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// Owns the process that talks to the relay: starts it while the daemon has the relay enabled, and starts it
/// again when it ends. Its words aren't read; whether it reaches the relay is the daemon's to tell. Main
/// executor; made with `make`, since the child's end and the pauses hold it weakly.
class RelayConnector : public RelayConnecting, public std::enable_shared_from_this<RelayConnector> {
public:
    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        DaemonClient client;
        DaemonEnvironment env;
        EnvironmentMap environment; // of this process
        std::shared_ptr<ChildLauncher> launcher;
        FileTest isExecutable = Files::isExecutable;
        FileTest exists = Files::exists;
    };

    static std::shared_ptr<RelayConnector> make(Dependencies dependencies);

    /// A daemon that doesn't answer leaves everything as it was. Any number of calls start one process.
    Task<> startIfEnabled() override;
    void stop() override;
    std::optional<std::string> lastError() const override { return lastError_; }

private:
    explicit RelayConnector(Dependencies dependencies) : parts_(std::move(dependencies)) {}

    void start();
    std::optional<RelayConnectorPlan> plan() const;
    void launch(RelayConnectorPlan plan);
    void ended(std::uint64_t launch);
    static Task<> startAfter(
        std::weak_ptr<RelayConnector> weak, std::shared_ptr<Clock> clock, double pause, std::uint64_t launch);

    const Dependencies parts_;
    std::shared_ptr<ChildProcess> process_;
    bool wanted_ = false;       // it should be running
    std::int64_t restarts_ = 0; // ends since the last stop
    std::optional<std::string> lastError_;
    std::uint64_t launch_ = 0;  // tells the process of now, or its absence, from what was before
    std::uint64_t asked_ = 0;   // of the daemon
    std::uint64_t settled_ = 0; // answers to questions up to this one are out of date
    TaskHandle pause_;
};

} // namespace kelvadrome
