#include "Kelvadrome/platform/linux/core/Resources.h"
#include "Kelvadrome/platform/linux/session/LaunchctlEffects.h"
#include "Kelvadrome/platform/linux/session/SystemdAgentService.h"
#include "KelvadromeKit/support/Files.h"

#include "tests/support/TemporaryFolder.h"

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

/// A user's systemd in memory, as far as it is asked.
struct ScriptedSystemctl {
    CommandResult operator()(std::vector<std::string> arguments, double) {
        calls.push_back(fmt::format("{}", fmt::join(arguments, " ")));
        const auto& verb = arguments.front();
        if (!answers)
            return {1, "", "Failed to connect to bus: No medium found\n"};
        if (verb == "show")
            return {0, "Version=252\n", ""};
        if (verb == "is-enabled") {
            return {state == "enabled" ? 0 : 1, state == "not-found" ? "" : state + "\n",
                state == "not-found" ? "Failed to get unit file state\n" : ""};
        }
        if (slow && verb == "disable")
            return {-1, "", "", true};
        if (verb == "enable" || verb == "disable") {
            if (state == "masked")
                return {1, "", "Unit " + arguments.back() + " is masked.\n"};
            if (failing)
                return {4, "", ""};
            state = verb == "enable" ? "enabled" : "disabled";
        }
        return {0, "", ""};
    }

    bool answers = true;
    bool slow = false;
    bool failing = false;
    std::string state = "not-found";
    std::vector<std::string> calls;
};

struct SystemdTest : testing::Test {
    TemporaryFolder folder;
    ScriptedSystemctl systemctl;
    SystemdAgentService service{std::ref(systemctl), "/opt/a \"b\" 5%/kelvadrome", folder / "systemd/user"};
    std::string unitPath = folder / "systemd/user/com.kelvadrome.mac.daemon.service";
};

TEST_F(SystemdTest, theStatusIsReadFromTheUnitsState) {
    systemctl.state = "masked-runtime";
    EXPECT_EQ(service.status(), Status::requiresApproval);
    // Without a manager the files alone would still say "enabled".
    systemctl.state = "enabled";
    systemctl.answers = false;
    EXPECT_EQ(service.status(), Status::notFound);
}

TEST_F(SystemdTest, registeringWritesTheUnitAndStartsIt) {
    EXPECT_EQ(service.status(), Status::notRegistered);
    service.registerService();
    EXPECT_EQ(service.status(), Status::enabled);
    const auto text = Files::read(unitPath, 4096).value_or("");
    EXPECT_THAT(text, testing::HasSubstr("\nExecStart=\"/opt/a \\\"b\\\" 5%%/kelvadrome\" "
                                         "--kelvadromed\nRestart=on-failure\nRestartSec="));
    EXPECT_THAT(systemctl.calls, testing::Contains("daemon-reload"));
    EXPECT_THAT(systemctl.calls, testing::Contains(fmt::format("enable --now {}", unit)));
    systemctl.calls.clear();
    service.unregisterService();
    EXPECT_THAT(systemctl.calls, ElementsAre(fmt::format("disable --now {}", unit), "daemon-reload"));
    EXPECT_FALSE(Files::exists(unitPath));
    EXPECT_EQ(service.status(), Status::notRegistered);
}

TEST_F(SystemdTest, whatTheManagerRefusesIsToldInItsWords) {
    using testing::ThrowsMessage;
    const auto registering = [&] { service.registerService(); };
    const auto unregistering = [&] { service.unregisterService(); };
    systemctl.state = "masked";
    EXPECT_THAT(registering, ThrowsMessage<AgentServiceError>(fmt::format("Unit {} is masked.", unit)));
    unregistering(); // nothing would start it
    systemctl.state = "enabled";
    systemctl.failing = true;
    EXPECT_THAT(unregistering, ThrowsMessage<AgentServiceError>("systemctl ended with status 4"));
    systemctl.slow = true;
    EXPECT_THAT(unregistering,
        ThrowsMessage<AgentServiceError>("macOS took too long to remove the background service"));
    systemctl.answers = false;
    EXPECT_THAT(registering, ThrowsMessage<AgentServiceError>("no systemd of this user answers"));
    EXPECT_FALSE(Files::exists(unitPath));
}

TEST_F(SystemdTest, aKickstartRestartsTheUnitThatStandsForTheLoginItem) {
    std::vector<std::string> launchctl;
    std::int32_t status = -1;
    const auto effects = BackgroundService::Effects::live(linuxLaunchctl(
        [&](const std::string& path, const std::vector<std::string>& arguments) {
            launchctl.push_back(fmt::format("{} {}", path, fmt::join(arguments, " ")));
            return status;
        },
        std::ref(systemctl)));
    effects.kickstart();
    const auto vector = fmt::format("/bin/launchctl kickstart gui/{}/com.kelvadrome.mac.daemon", ::getuid());
    EXPECT_THAT(launchctl, ElementsAre(vector));
    EXPECT_THAT(systemctl.calls, ElementsAre(fmt::format("restart {}", unit)));
    // Where launchctl does it, nobody else has to.
    status = 0;
    effects.kickstart();
    effects.bootout("com.kelvadrome.mac.daemon");
    EXPECT_EQ(systemctl.calls.size(), 1U);
    status = -1;
    EXPECT_FALSE(effects.isLoaded("com.kelvadrome.daemon"));
    effects.bootstrap("/p.plist");
    EXPECT_EQ(systemctl.calls.size(), 1U);
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
