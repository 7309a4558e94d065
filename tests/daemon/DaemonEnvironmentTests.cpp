#include "KelvadromeKit/daemon/DaemonLaunchPlan.h"
#include "KelvadromeKit/daemon/DataHome.h"
#include "KelvadromeKit/daemon/DebugFlags.h"

#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvadrome {
namespace {

using testing::ElementsAre;

const auto always = [](const std::string&) { return true; };

TEST(DaemonEnvironment, theDataHomeIsTheFirstThatIsNamed) {
    const auto home = Files::userHome();
    const auto standard = home + "/Library/Application Support/Kelvadrome";
    EXPECT_EQ(DaemonEnvironment::defaultHome(), standard);
    EXPECT_EQ(DaemonEnvironment::resolveHome("/o", {{"KELVADROME_HOME", "/e"}}), "/o");
    EXPECT_EQ(DaemonEnvironment::resolveHome("~/x", {}), home + "/x");
    EXPECT_EQ(DaemonEnvironment::resolveHome("", {{"KELVADROME_HOME", "~/e"}}), home + "/e");
    EXPECT_EQ(DaemonEnvironment::resolveHome(std::nullopt, {{"KELVADROME_HOME", ""}}), standard);
}

TEST(DaemonEnvironment, aHomeHasOneNameHoweverItIsWritten) {
    const test::TemporaryFolder folder;
    const auto place = Files::canonical(folder.path().string());
    std::filesystem::create_directory(folder / "real");
    std::filesystem::create_directory_symlink(folder / "real", folder / "link");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    for (const auto& written :
        {folder / "real", folder / "real/", folder / "real//", folder / "link", folder / "link/",
            folder / "./x/../real", std::string("real"), std::string("real/"), std::string("./link")}) {
        EXPECT_EQ(DaemonEnvironment::resolveHome(written, {}), place + "/real") << written;
        EXPECT_EQ(DaemonEnvironment::resolveHome("", {{"KELVADROME_HOME", written}}), place + "/real");
        EXPECT_EQ(DaemonEnvironment::namedHome(written, {}), written);
    }
    // One that is still to be made, behind a link that is there.
    EXPECT_EQ(DaemonEnvironment::resolveHome("link/new/home/", {}), place + "/real/new/home");
    std::filesystem::current_path(before);
}

TEST(DataHome, isRefusedWhereSomebodyElseCouldListen) {
    const test::TemporaryFolder folder;
    const auto home = folder / "home";
    EXPECT_EQ(DataHome::refusal(home), std::nullopt) << "it is still to be made";
    Files::makeFolders(home, 0700);
    EXPECT_EQ(DataHome::refusal(home), std::nullopt);
    for (const mode_t mode : {0720, 0702, 0777}) {
        ::chmod(home.c_str(), mode);
        EXPECT_TRUE(DataHome::refusal(home).value_or("").starts_with("Other users may write")) << mode;
    }
    ::chmod(home.c_str(), 0755);
    EXPECT_EQ(DataHome::refusal(home), std::nullopt);
    std::ofstream(folder / "file") << "x";
    EXPECT_TRUE(DataHome::refusal(folder / "file").value_or("").ends_with("is not a folder."));
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    const auto socket = home + "/kelvadromed.sock";
    std::ofstream(socket) << "x";
    EXPECT_EQ(::chown(socket.c_str(), 65534, 65534), 0);
    EXPECT_TRUE(DataHome::refusal(home).value_or("").starts_with("The socket ")) << "another user's socket";
    EXPECT_EQ(::chown(home.c_str(), 65534, 65534), 0);
    EXPECT_TRUE(DataHome::refusal(home).value_or("").contains("belongs to another user"));
}

TEST(DaemonEnvironment, nodeIsLookedForInOrderAndEachPlaceOnce) {
    const DaemonEnvironment env("/h", std::nullopt, "/r");
    EXPECT_THAT(env.nodeCandidates(":/a::/usr/local/bin:/b:/a"),
        ElementsAre(
            "/r/node/bin/node", "/opt/homebrew/bin/node", "/usr/local/bin/node", "/a/node", "/b/node"));
    EXPECT_EQ(env.findNode("/a", [](const std::string& path) { return path == "/a/node"; }), "/a/node");
}

TEST(DaemonEnvironment, nodeHasToBe22Point13OrLater) {
    for (const auto* fine : {"v22.13.0\n", "23.0", " vv24.1.0v ", "22.x.13"})
        EXPECT_TRUE(DaemonEnvironment::nodeVersionOK(fine)) << fine;
    for (const auto* refused : {"22.12.9", "21.99.99", "22", "", "22.", "x22.13"})
        EXPECT_FALSE(DaemonEnvironment::nodeVersionOK(refused)) << refused;
}

TEST(DaemonEnvironment, theDaemonGetsAFewVariablesAndALongerPath) {
    const DaemonEnvironment env("/h", std::nullopt, "/r");
    EXPECT_EQ(env.daemonEnvironment({{"SECRET", "x"}}),
        (EnvironmentMap{{"PATH", "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"},
            {"KELVADROME_HOME", "/h"}, {"NODE_ENV", "production"}}));
    const auto kept = env.daemonEnvironment(
        {{"HOME", "/u"}, {"PATH", ":/opt/homebrew/bin:"}, {"DISPLAY", ":0"}, {"NODE_OPTIONS", "--inspect"}});
    EXPECT_EQ(kept.at("HOME"), "/u");
    EXPECT_EQ(kept.at("PATH"), "/usr/local/bin::/opt/homebrew/bin:");
    EXPECT_EQ(kept.size(), 4U) << "and nothing of the rest";
}

TEST(DaemonLaunchPlan, theEnvironmentNamesTheHomeAndThePathIsLonger) {
    const auto environment = [](const EnvironmentMap& given) {
        return DaemonLaunchPlan::make("/r", given, "/u", always, always)->environment;
    };
    EXPECT_EQ(environment({{"KELVADROME_HOME", "~/k"}}).at("KELVADROME_HOME"), Files::userHome() + "/k");
    EXPECT_EQ(environment({{"HOME", "/other"}}).at("HOME"), "/other");
    EXPECT_EQ(environment({{"PATH", "/usr/bin:/u/.grok/bin"}}).at("PATH"),
        "/u/.local/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/u/.grok/bin");
}

TEST(DebugFlags, aPortIsAWholeNumberInAStringAndNotificationsAreOnUnlessSwitchedOff) {
    MemoryDefaults defaults({{"KDPort", std::string("+8080")}, {"KDSection", std::string("receipts")}});
    const auto flags = DebugFlags::read(defaults);
    EXPECT_EQ(flags.port, 8080);
    EXPECT_EQ(flags.section, NavSection::receipts);
    EXPECT_TRUE(flags.notifications);
    defaults.set("KDPort", std::string("80a"));
    defaults.set("KDNotifications", false);
    const auto others = DebugFlags::read(defaults);
    EXPECT_FALSE(others.port);
    EXPECT_FALSE(others.notifications);
}

} // namespace
} // namespace kelvadrome
