#include "KelvadromeKit/daemon/BackgroundService.h"

#include "KelvadromeKit/support/Files.h"

#include <fmt/format.h>

#include <chrono>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace kelvadrome {

namespace {

using Status = BackgroundServiceStatus;

constexpr double stopPause = 0.25; // seconds between looks at an old agent that was told to stop
constexpr const char* notInThisBuild = "Not available in this build. The daemon runs while the app is open.";

std::string describe(const std::exception& error, Status status) {
    if (status == Status::notFound)
        return notInThisBuild;
    return fmt::format(
        "macOS refused the background service ({}). The daemon runs while the app is open.", error.what());
}

} // namespace

std::string_view rawValue(BackgroundServiceStatus status) {
    switch (status) {
    case Status::notRegistered:
        return "notRegistered";
    case Status::enabled:
        return "enabled";
    case Status::requiresApproval:
        return "requiresApproval";
    case Status::notFound:
        return "notFound";
    }
    return "";
}

AgentServiceError AgentServiceError::removalTimedOut() {
    return AgentServiceError("macOS took too long to remove the background service", 1);
}

BackgroundService::Effects BackgroundService::Effects::live(Launchctl launchctl) {
    const auto domain = fmt::format("gui/{}", ::getuid());
    return {
        .bootout =
            [=](const std::string& label) {
                launchctl({"bootout", domain + "/" + label});
            },
        .isLoaded =
            [=](const std::string& label) {
                return launchctl({"print", domain + "/" + label}) == 0;
            },
        .bootstrap =
            [=](const std::string& plistPath) {
                launchctl({"bootstrap", domain, plistPath});
            },
        .kickstart =
            [=] {
                launchctl({"kickstart", domain + "/" + BackgroundService::label});
            },
    };
}

BackgroundService::Waiting BackgroundService::Waiting::real() {
    return {
        .now = [] { return WallTime(std::chrono::system_clock::now()); },
        .uptime =
            [] {
                const auto time = std::chrono::steady_clock::now().time_since_epoch();
                return std::chrono::duration<double>(time).count();
            },
        .pause = [](double length) { std::this_thread::sleep_for(seconds(length)); },
    };
}

std::string BackgroundService::State::line() const {
    if (error)
        return *error;
    switch (status) {
    case Status::notRegistered:
        return "Off. The daemon runs while the kelvadrome app is open.";
    case Status::enabled:
        return "On. kelvadrome keeps working when its window is closed and starts at login.";
    case Status::requiresApproval:
        return wanted ? "Waiting for your OK in System Settings, Login Items & Extensions. Turn on "
                        "kelvadrome there."
                      : "Off in System Settings, Login Items & Extensions.";
    case Status::notFound:
        return notInThisBuild;
    }
    return "";
}

BackgroundService::State BackgroundService::current(const Defaults& defaults) const {
    State state;
    state.status = service->status();
    state.wanted = defaults.storedBoolean(preferenceKey).value_or(state.status == Status::enabled);
    return state;
}

BackgroundService::State BackgroundService::prepareAfterInstall(Defaults& defaults) const {
    defaults.set(preferenceKey, true);
    return prepare(defaults, Occasion::request);
}

BackgroundService::State BackgroundService::prepareAtLaunch(Defaults& defaults) const {
    return prepare(defaults, Occasion::launch);
}

BackgroundService::State BackgroundService::prepare(Defaults& defaults, Occasion occasion) const {
    const auto preference = defaults.storedBoolean(preferenceKey);
    if (legacy.isPresent())
        return migrate(defaults);

    State state;
    state.status = service->status();
    state.wanted = preference.value_or(state.status == Status::enabled);
    if (state.wanted && state.status == Status::notRegistered) {
        state.error = registerNow(defaults);
        state.status = service->status();
    } else if (state.wanted && state.status == Status::enabled && needsRefresh(defaults, occasion)) {
        state.error = refresh(defaults);
        state.status = service->status();
    } else if (preference == false &&
               (state.status == Status::enabled || state.status == Status::requiresApproval)) {
        try {
            service->unregisterService();
        } catch (const std::exception&) {
            // The status read below shows it, and the next launch tries again.
        }
        state.status = service->status();
    }
    if (state.status == Status::requiresApproval || state.status == Status::enabled)
        state.error.reset();
    return state;
}

/// Whether an enabled service is to be registered anew.
bool BackgroundService::needsRefresh(const Defaults& defaults, Occasion occasion) const {
    const auto registration = service->registration();
    // Two installations that each took over at every launch would never end it.
    if (registration == AgentRegistration::elsewhere)
        return occasion == Occasion::request;
    return registration == AgentRegistration::outdated || defaults.string(buildKey) != build;
}

/// Registers an enabled service anew; what went wrong, if anything.
std::optional<std::string> BackgroundService::refresh(Defaults& defaults) const {
    try {
        service->unregisterService();
    } catch (const std::exception& error) {
        return std::string("kelvadrome could not refresh its background service after the update: ") +
               error.what();
    }
    return registerNow(defaults);
}

std::optional<std::string> BackgroundService::registerNow(Defaults& defaults) const {
    try {
        service->registerService();
    } catch (const std::exception& error) {
        const auto status = service->status();
        // The system took the registration and waits for the user: no failure.
        if (status == Status::requiresApproval)
            return std::nullopt;
        return describe(error, status);
    }
    defaults.set(buildKey, build);
    return std::nullopt;
}

BackgroundService::State BackgroundService::set(bool on, Defaults& defaults) const {
    State state;
    const auto before = service->status();
    if (on) {
        defaults.set(preferenceKey, true);
        if (before != Status::enabled || service->registration() != AgentRegistration::current)
            state.error = registerNow(defaults);
    } else {
        try {
            if (before != Status::notRegistered && before != Status::notFound)
                service->unregisterService();
            defaults.set(preferenceKey, false);
        } catch (const std::exception& error) {
            state.error = error.what();
        }
    }
    const auto after = current(defaults);
    state.status = after.status;
    state.wanted = after.wanted;
    if (state.status == Status::requiresApproval)
        state.error.reset();
    return state;
}

BackgroundService::State BackgroundService::migrate(Defaults& defaults) const {
    effects.bootout(LegacyLaunchAgent::label);
    if (!oldAgentStops()) {
        auto state = current(defaults);
        state.error =
            "The old background agent did not stop. kelvadrome left it as it is and will try again at the "
            "next launch.";
        return state;
    }
    std::string folder;
    try {
        folder = legacy.moveToBackup(storageRoot, waiting.now());
    } catch (const std::exception& error) {
        auto state = current(defaults);
        state.error = std::string("kelvadrome could not move the old background agent: ") + error.what();
        return state;
    }
    defaults.set(preferenceKey, true);
    if (service->status() == Status::enabled) {
        defaults.set(buildKey, build);
    } else {
        registerNow(defaults);
    }
    auto state = current(defaults);
    if (state.status == Status::enabled || state.status == Status::requiresApproval) {
        state.migratedTo = folder;
        return state;
    }
    try {
        Files::move(LegacyLaunchAgent::backedUpFile(folder), legacy.path);
    } catch (const std::system_error&) {
        // The file stays in the backup; the words below tell of the refusal, which is what the user can act
        // on.
    }
    effects.bootstrap(legacy.path);
    state.error = "macOS refused the background service. The old background agent stays for now.";
    return state;
}

/// Waits until launchd has let go of the old agent; false when it didn't within `stopTimeout`.
bool BackgroundService::oldAgentStops() const {
    const double deadline = waiting.uptime() + stopTimeout;
    while (effects.isLoaded(LegacyLaunchAgent::label)) {
        if (waiting.uptime() >= deadline)
            return false;
        waiting.pause(stopPause);
    }
    return true;
}

} // namespace kelvadrome
