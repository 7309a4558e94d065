#include "Kelvadrome/platform/linux/core/Resources.h"
#include "Kelvadrome/platform/linux/session/LaunchctlEffects.h"
#include "Kelvadrome/platform/linux/session/SystemdAgentService.h"
#include "KelvadromeKit/support/Files.h"

#include "tests/daemon/LoginItem.h"

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;
using Status = BackgroundServiceStatus;

constexpr const char* unit = "com.kelvadrome.mac.daemon.service";

/// A user's systemd in memory, as far as it is asked: the answers of systemd 252 to our unit.
struct ScriptedManager {
    CommandResult operator()(std::vector<std::string> arguments, double) {
        calls.push_back(fmt::format("{}", fmt::join(arguments, " ")));
        const auto& verb = arguments.front();
        if (!answers)
            return {1, "", "Failed to connect to bus: No medium found\n"};
        if (slow && verb == "disable")
            return {-1, "", "", true};
        if (failing && verb != "show")
            return {4, "", ""};
        const auto file = Files::read(unitPath, 4096);
        if (verb == "show") {
            const auto* state = masked ? "masked-runtime" : !file ? "" : enabled ? "enabled" : "disabled";
            return {0, fmt::format("UnitFileState={}\n{}", state, activity), ""};
        }
        if (verb == "daemon-reload") {
            loaded = file;
        } else if (verb == "enable") {
            EXPECT_EQ(arguments.back(), unitPath) << "by its name a masked unit is refused";
            enabled = true;
        } else if (verb == "disable") {
            runs.reset();
            enabled = masked && enabled; // "Unit ... is masked, ignoring."
        } else if (masked) {
            return {1, "", fmt::format("Failed to {} {}: Unit {} is masked.\n", verb, unit, unit)};
        } else if (verb == "restart" || !runs) {
            runs = loaded;
        }
        return {0, "", ""};
    }

    std::string unitPath;
    bool answers = true;
    bool slow = false;
    bool failing = false;
    bool enabled = false;
    bool masked = false;
    std::string activity; // "ActiveState=...\nSubState=...\n"
    std::optional<std::string> loaded;
    std::optional<std::string> runs; // the unit's text when it was started
    std::vector<std::string> calls;
};

struct SystemdTest : testing::Test {
    SystemdTest() {
        manager.unitPath = item.folder / "systemd/user/com.kelvadrome.mac.daemon.service";
        item.background.service = service;
    }

    void write(const std::string& text) {
        std::filesystem::create_directories(item.folder / "systemd/user");
        std::ofstream(manager.unitPath) << text;
        manager({"daemon-reload"}, 0);
        manager({"restart"}, 0);
        manager.enabled = true;
        manager.calls.clear();
    }

    LoginItem item;
    ScriptedManager manager;
    const std::string program = "/opt/a \"b\" 5%\\/kelvadrome";
    const std::string ours = SystemdAgentService::unitText(program);
    std::shared_ptr<SystemdAgentService> service =
        std::make_shared<SystemdAgentService>(std::ref(manager), program, item.folder / "systemd/user");
};

TEST_F(SystemdTest, oneCallTellsTheStatusAlsoToALaunchThatHasNothingToDo) {
    write(ours);
    item.defaults.set(BackgroundService::buildKey, "7");
    EXPECT_EQ(item.background.prepareAtLaunch(item.defaults).status, Status::enabled);
    EXPECT_EQ(manager.calls.size(), 1U);
    manager.masked = true;
    EXPECT_EQ(service->status(), Status::requiresApproval);
    std::filesystem::remove(manager.unitPath);
    EXPECT_EQ(service->status(), Status::notRegistered) << "there is nothing that the user could allow";
    manager.answers = false;
    EXPECT_EQ(service->status(), Status::notFound);
    EXPECT_EQ(manager.calls.size(), 4U);
}

TEST_F(SystemdTest, registeringWritesTheUnitAndStartsIt) {
    EXPECT_EQ(service->status(), Status::notRegistered);
    service->registerService();
    EXPECT_EQ(service->status(), Status::enabled);
    EXPECT_THAT(ours, testing::HasSubstr("\nExecStart=\"/opt/a \\\"b\\\" 5%%\\\\/kelvadrome\" "
                                         "--kelvadromed\nRestart=always\nRestartSec="));
    EXPECT_THAT(ours, testing::HasSubstr("\nConditionFileIsExecutable=/opt/a \"b\" 5%%\\/kelvadrome\n"));
    EXPECT_EQ(manager.runs, ours);
    manager.calls.clear();
    service->unregisterService();
    EXPECT_THAT(manager.calls, ElementsAre(fmt::format("disable --now {}", unit), "daemon-reload"));
    EXPECT_FALSE(Files::exists(manager.unitPath));
    EXPECT_EQ(service->status(), Status::notRegistered);
}

TEST_F(SystemdTest, aMaskedUnitIsRegisteredAndEnabledOnceTheUserLiftsTheMask) {
    manager.masked = true;
    EXPECT_TRUE(item.background.prepareAfterInstall(item.defaults).needsApproval());
    manager.masked = false;
    EXPECT_EQ(service->status(), Status::enabled);
    manager.masked = true;
    EXPECT_EQ(item.background.set(false, item.defaults).status, Status::notRegistered);
}

TEST_F(SystemdTest, aLaunchWritesTheUnitAnewUnlessAnotherInstallationLivesByIt) {
    item.defaults.set(BackgroundService::buildKey, "7");
    const auto launched = [&](const std::string& before) {
        write(before);
        EXPECT_EQ(item.background.prepareAtLaunch(item.defaults).status, Status::enabled);
        return manager.runs;
    };
    EXPECT_EQ(launched(ours + "# of before\n"), ours);
    EXPECT_EQ(launched(SystemdAgentService::unitText("/no/longer/here")), ours);
    EXPECT_EQ(launched("[Service]\n"), ours);
    const auto anothers = SystemdAgentService::unitText("/bin/sh");
    EXPECT_EQ(launched(anothers), anothers);
    item.background.set(true, item.defaults);
    EXPECT_EQ(manager.runs, ours) << "the user asked for this one";
}

TEST_F(SystemdTest, aUnitBetweenTwoTriesIsDown) {
    const auto runs = [&](const std::string& state, const std::string& detail) {
        manager.activity = fmt::format("ActiveState={}\nSubState={}\n", state, detail);
        return service->isRunning();
    };
    EXPECT_TRUE(runs("active", "running"));
    EXPECT_TRUE(runs("activating", "start"));
    EXPECT_FALSE(runs("activating", "auto-restart"));
    EXPECT_FALSE(runs("inactive", "dead"));
    manager.answers = false;
    EXPECT_FALSE(runs("active", "running"));
}

TEST_F(SystemdTest, whatTheManagerRefusesIsToldInItsWords) {
    using testing::ThrowsMessage;
    const auto registering = [&] { service->registerService(); };
    const auto unregistering = [&] { service->unregisterService(); };
    manager.failing = true;
    EXPECT_THAT(unregistering, ThrowsMessage<AgentServiceError>("systemctl ended with status 4"));
    manager.slow = true;
    EXPECT_THAT(unregistering,
        ThrowsMessage<AgentServiceError>("macOS took too long to remove the background service"));
    manager.answers = false;
    EXPECT_THAT(registering, ThrowsMessage<AgentServiceError>("no systemd of this user answers"));
    EXPECT_FALSE(Files::exists(manager.unitPath));
}

TEST_F(SystemdTest, aKickstartRestartsTheUnitThatStandsForTheLoginItem) {
    std::vector<std::string> launchctl;
    std::int32_t status = -1;
    const auto effects = BackgroundService::Effects::live(linuxLaunchctl(
        [&](const std::string& path, const std::vector<std::string>& arguments) {
            launchctl.push_back(fmt::format("{} {}", path, fmt::join(arguments, " ")));
            return status;
        },
        std::ref(manager)));
    effects.kickstart();
    const auto vector = fmt::format("/bin/launchctl kickstart gui/{}/com.kelvadrome.mac.daemon", ::getuid());
    EXPECT_THAT(launchctl, ElementsAre(vector));
    EXPECT_THAT(manager.calls, ElementsAre(fmt::format("restart {}", unit)));
    // Where launchctl does it, nobody else has to.
    status = 0;
    effects.kickstart();
    effects.bootout("com.kelvadrome.mac.daemon");
    EXPECT_EQ(manager.calls.size(), 1U);
    status = -1;
    EXPECT_FALSE(effects.isLoaded("com.kelvadrome.daemon"));
    effects.bootstrap("/p.plist");
    EXPECT_EQ(manager.calls.size(), 1U);
}

TEST(Resources, lieBesideTheExecutableOrWhereItIsInstalled) {
    TemporaryFolder folder;
    std::filesystem::create_directories(folder / "bin");
    const auto executable = folder / "bin/kelvadrome";
    EXPECT_EQ(resourceDirectory(executable), std::nullopt);
    std::filesystem::create_directories(folder / "share/kelvadrome");
    EXPECT_EQ(resourceDirectory(executable), folder / "share/kelvadrome");
    std::filesystem::create_directories(folder / "bin/resources");
    EXPECT_EQ(resourceDirectory(executable), folder / "bin/resources");
    EXPECT_TRUE(Files::isExecutable(executablePath()));
}

} // namespace
} // namespace kelvadrome::test
