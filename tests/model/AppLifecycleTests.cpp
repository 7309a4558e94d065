#include "Kelvadrome/model/AppLifecycle.h"
#include "Kelvadrome/model/Commands.h"
#include "Kelvadrome/model/InspectorRows.h"

#include "tests/model/World.h"

#include <algorithm>

namespace kelvadrome::test {
namespace {

/// A quit while setup may be installing something; the user would rather keep it running.
class Quitting : public testing::Test, protected World {
protected:
    bool quits() {
        if (!lifecycle)
            lifecycle.emplace(model, DaemonClient(UnixSocketTransport(socketPath, loop.pool())),
                [this](AppLifecycle::QuitQuestion question) { return keep(&questions, question.text); });
        return loop.run(lifecycle->shouldTerminate());
    }
    void installing(const std::string& agents) {
        daemon->on(
            "/v1/onboarding/status", FakeReply::data(R"({"completed":false,"agents":[)" + agents + "]}"));
    }

    std::vector<std::string> questions;
    std::optional<AppLifecycle> lifecycle;

private:
    static Task<bool> keep(std::vector<std::string>* questions, std::string text) {
        questions->push_back(std::move(text));
        co_return false;
    }
};

TEST_F(Quitting, whatADaemonInstallsThatSurvivesTheQuitIsNotAskedAbout) {
    flags.onboarding = true;
    start();
    ASSERT_TRUE(state().onboardingActive);
    ASSERT_EQ(state().supervisorStatus->mode, DaemonSupervisor::Mode::attached);
    installing(R"({"id":"codex","name":"Codex","install":{"state":"running"}})");
    EXPECT_TRUE(quits());
    EXPECT_TRUE(questions.empty());
    EXPECT_TRUE(quits()) << "a second request passes at once";
}

TEST_F(Quitting, beforeTheDaemonIsKnownAQuitAsksOnlyWhileSomethingInstalls) {
    make().openOnboarding(true);
    installing(
        R"({"id":"codex","install":{"state":"queued"}},{"id":"claude","install":{"state":"installed"}})");
    EXPECT_FALSE(quits());
    EXPECT_EQ(questions, std::vector<std::string>{"codex is installing. Quit anyway?"});
    installing(R"({"id":"claude","install":{"state":"installed"}})");
    EXPECT_TRUE(quits());
    EXPECT_EQ(questions.size(), 1U);
}

TEST(AppLifecycle, onlyTwoNumbersAreAWindowsSize) {
    EXPECT_EQ(AppLifecycle::windowSize("1200x800"), std::pair(1200, 800));
    for (const auto* text : {"1200", "1200x800x3", "x800", "1200xhigh", "-5x800", "1e9x800", " 1200x800"})
        EXPECT_EQ(AppLifecycle::windowSize(text), std::nullopt) << text;
}

TEST(KelvadromeCommands, eachEntryDoesWhatItsTitleSays) {
    World world;
    auto& model = world.make();
    const auto commands = kelvadromeCommands();
    const auto run = [&](const std::string& title) {
        const auto found = std::ranges::find(commands, title, &KelvadromeCommand::title);
        ASSERT_NE(found, commands.end()) << title;
        found->run(model);
    };
    run("Expert Mode");
    EXPECT_EQ(model.state().interfaceMode, InterfaceMode::expert);
    run("Agent Strip");
    EXPECT_TRUE(model.state().agentStripShown);
    run("Agents");
    EXPECT_EQ(model.state().section, NavSection::agents);

    std::vector<std::string> keys;
    for (const auto& command : commands) {
        if (!command.key.empty())
            keys.push_back(command.key);
    }
    std::ranges::sort(keys);
    EXPECT_EQ(std::ranges::adjacent_find(keys), keys.end()) << "two entries share a key";
    EXPECT_EQ(std::ranges::find(commands, "Autopilot", &KelvadromeCommand::title)->key, "<Control>7");
}

TEST(InspectorRows, whatIsNotKnownHasNoRow) {
    AppState state;
    ASSERT_EQ(inspectorGroups(state).size(), 1U);
    state.credentialsExpiry = "port 4711";
    state.supervisorStatus = DaemonSupervisor::Status{.mode = DaemonSupervisor::Mode::spawned,
        .nodePath = "/n/node",
        .childPid = 12,
        .restarts = 2,
        .logTail = {"one", "two"}};
    state.health.emplace().home = "/h";
    state.health->uptimeS = 7260;
    const auto groups = inspectorGroups(state);
    ASSERT_EQ(groups.size(), 4U);
    EXPECT_EQ(groups[0].rows, (std::vector<InspectorRow>{{"Mode", "Started by this window"},
                                  {"Node", "/n/node"}, {"Child process", "12"}, {"Restarts", "2"}}));
    EXPECT_EQ(groups[1].rows.back(), (InspectorRow{"Running for", "2 h 1 min"}));
    EXPECT_EQ(groups[2].rows.front(), (InspectorRow{"Open on", "port 4711"}));
    EXPECT_EQ(groups[3].rows, (std::vector<InspectorRow>{{"", "one\ntwo"}}));
}

} // namespace
} // namespace kelvadrome::test
