#pragma once

#include "KelvadromeKit/daemon/LegacyLaunchAgent.h"
#include "KelvadromeKit/support/Defaults.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

enum class BackgroundServiceStatus { notRegistered, enabled, requiresApproval, notFound };

std::string_view rawValue(BackgroundServiceStatus status); // the enumerator's name

/// Why the system didn't do what was asked of an agent service; `what` is text for a person.
class AgentServiceError : public std::runtime_error {
public:
    static constexpr const char* domain = "kelvadrome";

    explicit AgentServiceError(const std::string& words, int code = 0)
        : std::runtime_error(words), code_(code) {}
    /// Code 1.
    static AgentServiceError removalTimedOut();
    int code() const { return code_; }

private:
    int code_;
};

/// How what the system has registered compares with what this program would register.
enum class AgentRegistration {
    current,   // the same
    outdated,  // of this program as it was, or of a program that is gone
    elsewhere, // of another installation, whose program is there
};

/// One login item, as the system keeps it. Calls block for at most about 20 seconds; any thread.
class AgentService {
public:
    virtual ~AgentService() = default;

    virtual BackgroundServiceStatus status() = 0;
    /// Takes the place of another registration, and starts what has changed again. Throws; perhaps also when
    /// the system took the registration and waits for the user, which `status` then says.
    virtual void registerService() = 0;
    virtual void unregisterService() = 0;
    /// Of a service that is enabled.
    virtual AgentRegistration registration() = 0;
    /// Whether the system runs the service now; false also when the system doesn't answer.
    virtual bool isRunning() = 0;
};

/// Keeps the daemon running without a window, as a login item: reconciles what the user wants with what the
/// system reports. A value; everything that changes lives in the defaults and behind the seams. All
/// operations but `line` and `needsApproval` block, `prepareAtLaunch` for as long as `stopTimeout` and more;
/// any thread.
class BackgroundService {
public:
    static constexpr const char* label = "com.kelvadrome.mac.daemon";
    static constexpr const char* plistName = "com.kelvadrome.mac.daemon.plist";
    static constexpr const char* preferenceKey = "KDBackgroundService"; // boolean: what the user wants
    static constexpr const char* buildKey = "KDBackgroundServiceBuild"; // string: the build that registered
    static constexpr double defaultStopTimeout = 20.0;

    /// Runs launchctl with these arguments to its end; its exit status, non-zero when it can't be launched.
    using Launchctl = std::function<std::int32_t(std::vector<std::string>)>;

    /// What is asked of the user's launchd domain. Any thread.
    struct Effects {
        std::function<void(const std::string& label)> bootout;
        std::function<bool(const std::string& label)> isLoaded;
        std::function<void(const std::string& plistPath)> bootstrap;
        std::function<void()> kickstart; // starts the login item again now

        static Effects live(Launchctl launchctl);
    };

    /// Waiting, on the calling thread.
    struct Waiting {
        std::function<WallTime()> now;
        std::function<double()> uptime;
        std::function<void(double seconds)> pause;

        static Waiting real();
    };

    struct State {
        BackgroundServiceStatus status = BackgroundServiceStatus::notRegistered;
        bool wanted = false;
        std::optional<std::string> migratedTo = {}; // the backup folder, when a migration has just happened
        std::optional<std::string> error = {};      // text for a person

        /// The system waits for the user.
        bool needsApproval() const { return wanted && status == BackgroundServiceStatus::requiresApproval; }
        /// The words of the settings pane.
        std::string line() const;
        bool operator==(const State&) const = default;
    };

    std::shared_ptr<AgentService> service;
    LegacyLaunchAgent legacy;
    std::string storageRoot; // the data home, where backups go
    Effects effects;
    std::string build;
    double stopTimeout = defaultStopTimeout; // seconds that the old agent gets to stop
    Waiting waiting = Waiting::real();

    /// How things stand; changes nothing.
    State current(const Defaults& defaults) const;
    /// Reconciles at each start of the application: migrates the old agent, registers, refreshes after an
    /// update or when the registered program is gone. Another installation's registration is left alone.
    State prepareAtLaunch(Defaults& defaults) const;
    /// The same after the preference was set to true. Takes over from another installation.
    State prepareAfterInstall(Defaults& defaults) const;
    /// The user's wish. On takes over from another installation.
    State set(bool on, Defaults& defaults) const;
    /// Asks the system to start the login item again now.
    void kickstart() const { effects.kickstart(); }

private:
    enum class Occasion { launch, request }; // of the user, who asked for this program

    State prepare(Defaults& defaults, Occasion occasion) const;
    State migrate(Defaults& defaults) const;
    bool oldAgentStops() const;
    bool needsRefresh(const Defaults& defaults, Occasion occasion) const;
    std::optional<std::string> refresh(Defaults& defaults) const;
    std::optional<std::string> registerNow(Defaults& defaults) const;
};

} // namespace kelvadrome
