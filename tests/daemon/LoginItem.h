#pragma once

#include "KelvadromeKit/daemon/BackgroundService.h"

#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace kelvadrome::test {

/// A system's login item in memory.
class FakeAgentService final : public AgentService {
public:
    BackgroundServiceStatus status() override { return now; }
    void registerService() override {
        calls.push_back("register");
        if (refusal)
            throw AgentServiceError(*refusal);
        now = afterRegister;
        registered = AgentRegistration::current;
    }
    void unregisterService() override {
        calls.push_back("unregister");
        if (unregisterRefusal)
            throw AgentServiceError(*unregisterRefusal);
        now = BackgroundServiceStatus::notRegistered;
    }
    AgentRegistration registration() override { return registered; }
    bool isRunning() override { return running; }

    BackgroundServiceStatus now = BackgroundServiceStatus::notRegistered;
    BackgroundServiceStatus afterRegister = BackgroundServiceStatus::enabled;
    AgentRegistration registered = AgentRegistration::current;
    bool running = true;
    std::optional<std::string> refusal;
    std::optional<std::string> unregisterRefusal;
    std::vector<std::string> calls;
};

inline std::string agentPlist(const std::string& label) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict><key>Label</key><string>)" +
           label + "</string><key>RunAtLoad</key><true/></dict></plist>\n";
}

/// A user's home with, if wanted, the old agent in it; a launchd that remembers; time that passes only in
/// pauses.
struct LoginItem {
    LoginItem() {
        background.service = service;
        background.legacy = LegacyLaunchAgent::inHome(folder / "home");
        background.storageRoot = folder / "data";
        background.build = "7";
        background.effects = {
            .bootout = [this](const std::string& label) { launchd.push_back("bootout " + label); },
            .isLoaded = [this](const std::string&) { return uptime < unloadsAt; },
            .bootstrap = [this](const std::string& path) { launchd.push_back("bootstrap " + path); },
            .kickstart = [this] { launchd.push_back("kickstart"); }};
        background.waiting = {.now = [this] { return now; },
            .uptime = [this] { return uptime; },
            .pause = [this](double length) { uptime += length; }};
    }

    void installOldAgent() {
        std::filesystem::create_directories(folder / "home/Library/LaunchAgents");
        std::ofstream(background.legacy.path) << agentPlist(LegacyLaunchAgent::label);
    }

    TemporaryFolder folder;
    std::shared_ptr<FakeAgentService> service = std::make_shared<FakeAgentService>();
    MemoryDefaults defaults;
    BackgroundService background;
    std::vector<std::string> launchd;
    double uptime = 100;
    double unloadsAt = 0;
    WallTime now = wallTime(1'800'000'000.75);
};

} // namespace kelvadrome::test
