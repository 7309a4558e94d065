#include "KelvadromeKit/daemon/DaemonLaunchPlan.h"
#include "KelvadromeKit/daemon/DebugFlags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvadrome {
namespace {

using testing::ElementsAre;

const auto always = [](const std::string&) { return true; };
const auto never = [](const std::string&) { return false; };

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
    EXPECT_FALSE(Files::isExecutable("/")); // a folder is no program
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
    const EnvironmentMap base = {{"HOME", "/u"}, {"USER", "u"}, {"LOGNAME", "u"}, {"LANG", "C"},
        {"TMPDIR", "/t"}, {"SHELL", "/bin/sh"}, {"PATH", ":/opt/homebrew/bin:"}, {"DISPLAY", ":0"},
        {"NODE_OPTIONS", "--inspect"}};
    auto expected = base;
    expected.erase("DISPLAY");
    expected.erase("NODE_OPTIONS");
    expected["PATH"] = "/usr/local/bin::/opt/homebrew/bin:";
    expected["KELVADROME_HOME"] = "/h";
    expected["NODE_ENV"] = "production";
    EXPECT_EQ(env.daemonEnvironment(base), expected);
}

TEST(DaemonLaunchPlan, isCompleteForExec) {
    const auto plan = DaemonLaunchPlan::make("/r", {{"PATH", "/usr/bin:/u/.grok/bin"}}, "/u", always, always);
    ASSERT_TRUE(plan);
    const std::string home = "/u/Library/Application Support/Kelvadrome";
    EXPECT_EQ(plan->executable, "/r/node/bin/node");
    EXPECT_THAT(plan->arguments, ElementsAre("/r/node/bin/node", "/r/kelvadrome/kelvadromed-app.mjs",
                                     "--home", home, "--static", "/r/kelvadrome/web/dist"));
    EXPECT_EQ(plan->environment,
        (EnvironmentMap{{"HOME", "/u"}, {"KELVADROME_HOME", home}, {"NODE_ENV", "production"},
            {"PATH", "/u/.local/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/u/.grok/bin"}}));
}

TEST(DaemonLaunchPlan, theEnvironmentNamesTheHomeAndAnEmptyNameIsTheRunningUsers) {
    const auto homeFor = [](const EnvironmentMap& environment) {
        return DaemonLaunchPlan::make("/r", environment, "/u", always, always)
            ->environment.at("KELVADROME_HOME");
    };
    EXPECT_EQ(homeFor({{"KELVADROME_HOME", "~/k"}}), Files::userHome() + "/k");
    EXPECT_EQ(homeFor({{"KELVADROME_HOME", ""}}), DaemonEnvironment::defaultHome());
    EXPECT_EQ(
        DaemonLaunchPlan::make("/r", {{"HOME", "/other"}}, "/u", always, always)->environment.at("HOME"),
        "/other");
}

TEST(DaemonLaunchPlan, isAbsentWithoutNodeOrLauncher) {
    EXPECT_FALSE(DaemonLaunchPlan::make("/r", {}, "/u", never, always));
    EXPECT_FALSE(DaemonLaunchPlan::make("/r", {}, "/u", always,
        [](const std::string& path) { return path != "/r/kelvadrome/kelvadromed-app.mjs"; }));
}

TEST(DebugFlags, areReadAsTheirKindsSay) {
    EXPECT_EQ(DebugFlags::read(MemoryDefaults()), DebugFlags{});
    MemoryDefaults defaults({{"KDHome", std::string("~/k")}, {"KDPort", std::string("+8080")},
        {"KDAppearance", std::string("dark")}, {"KDNotifications", false},
        {"KDOpenPanel", std::string("YES")}, {"KDOpenSettings", std::string("voice")},
        {"KDSection", std::string("receipts")}, {"KDInspector", true}, {"KDOnboarding", std::int64_t(1)},
        {"KDOpenBar", std::string("no")}, {"KDBarText", std::string("hi")}, {"KDQuiet", true}});
    EXPECT_EQ(DebugFlags::read(defaults), (DebugFlags{"~/k", 8080, "dark", false, true, "voice",
                                              NavSection::receipts, true, true, false, "hi", true}));
    for (const auto& [text, port] : std::vector<std::pair<DefaultsValue, std::optional<std::int64_t>>>{
             {std::string("80a"), std::nullopt}, {std::int64_t(8080), std::nullopt}}) {
        defaults.set("KDPort", text);
        EXPECT_EQ(DebugFlags::read(defaults).port, port);
    }
    defaults.set("KDSection", std::string("Inbox"));
    EXPECT_EQ(DebugFlags::read(defaults).section, std::nullopt);
    defaults.remove("KDNotifications");
    EXPECT_TRUE(DebugFlags::read(defaults).notifications);
}

} // namespace
} // namespace kelvadrome
