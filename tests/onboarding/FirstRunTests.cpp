#include "KelvadromeKit/onboarding/FirstRun.h"

#include <gtest/gtest.h>

namespace kelvadrome {

namespace {

using FirstRun::Decision;

TEST(FirstRun, onlyADaemonThatSaysSoOrTheUserSendsThroughSetup) {
    EXPECT_EQ(FirstRun::decide(std::nullopt, false), Decision::main);
    EXPECT_EQ(FirstRun::decide(true, false), Decision::main);
    EXPECT_EQ(FirstRun::decide(false, false), Decision::onboarding);
    EXPECT_EQ(FirstRun::decide(true, true), Decision::onboarding);
    EXPECT_EQ(FirstRun::decide(std::nullopt, true), Decision::onboarding);
}

TEST(FirstRun, thePageReplacesWhateverPathAndQueryTheBaseHas) {
    const std::string page = "http://127.0.0.1:4711/onboarding?shell=native&first_run=";
    EXPECT_EQ(FirstRun::url("http://127.0.0.1:4711", true), page + "1");
    EXPECT_EQ(FirstRun::url("http://127.0.0.1:4711/topics/x?scope=work&first_run=7", true), page + "1");
    EXPECT_EQ(FirstRun::url("http://127.0.0.1:4711/", false), page + "0");
    for (const auto* base : {"", "127.0.0.1:4711", "/onboarding", "http://a b/"})
        EXPECT_EQ(FirstRun::url(base, true), std::nullopt) << base;
}

TEST(FirstRun, aQuitIsQuestionedOnlyWhileSomethingIsInstalling) {
    EXPECT_EQ(FirstRun::quitPrompt({}), std::nullopt);
    EXPECT_EQ(FirstRun::quitPrompt({"Codex"}), "Codex is installing. Quit anyway?");
    EXPECT_EQ(FirstRun::quitPrompt({"Codex", "Claude"}), "Codex and Claude are installing. Quit anyway?");
    EXPECT_EQ(FirstRun::quitPrompt({"A", "B", "C"}), "A, B and C are installing. Quit anyway?");
}

} // namespace

} // namespace kelvadrome
