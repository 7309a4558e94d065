#include "KelvadromeKit/daemon/DaemonLaunchPlan.h"
#include "KelvadromeKit/daemon/DebugFlags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

TEST(DebugFlags, areReadAsTheirKindsSay) {
    MemoryDefaults defaults({{"KDHome", std::string("~/k")}, {"KDPort", std::string("+8080")},
        {"KDAppearance", std::string("dark")}, {"KDNotifications", false},
        {"KDOpenPanel", std::string("YES")}, {"KDOpenSettings", std::string("voice")},
        {"KDSection", std::string("receipts")}, {"KDInspector", true}, {"KDOnboarding", std::int64_t(1)},
        {"KDOpenBar", std::string("no")}, {"KDBarText", std::string("hi")}, {"KDQuiet", true}});
    EXPECT_EQ(DebugFlags::read(defaults), (DebugFlags{"~/k", 8080, "dark", false, true, "voice",
                                              NavSection::receipts, true, true, false, "hi", true}));
    defaults.set("KDPort", std::string("80a"));
    EXPECT_EQ(DebugFlags::read(defaults).port, std::nullopt);
}

} // namespace
} // namespace kelvadrome
