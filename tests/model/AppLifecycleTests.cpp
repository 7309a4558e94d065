#include "Kelvadrome/model/AppLifecycle.h"
#include "Kelvadrome/model/Commands.h"
#include "Kelvadrome/model/InspectorRows.h"

#include "tests/model/World.h"

#include <algorithm>

namespace kelvadrome::test {
namespace {

/// A quit while setup may be installing something.
class Quitting : public testing::Test {
protected:
    bool quits(bool answer) {
        const auto ask = [this, answer](AppLifecycle::QuitQuestion question) {
            return reply(&asked, std::move(question.text), answer);
        };
        if (!lifecycle)
            lifecycle.emplace(world.model, client(), ask);
        return world.loop.run(lifecycle->shouldTerminate());
    }
    DaemonClient client() { return DaemonClient(UnixSocketTransport(world.socketPath, world.loop.pool())); }
    void installing(const std::string& agents) {
        world.daemon->on(
            "/v1/onboarding/status", FakeReply::data(R"({"completed":false,"agents":[)" + agents + "]}"));
    }

    World world;
    std::vector<std::string> asked;
    std::optional<AppLifecycle> lifecycle;

private:
    static Task<bool> reply(std::vector<std::string>* asked, std::string text, bool answer) {
        asked->push_back(std::move(text));
        co_return answer;
    }
};

TEST_F(Quitting, anInstallUnderWayIsAskedAboutAndCanBeKept) {
    world.flags.onboarding = true;
    world.start();
    ASSERT_TRUE(world.state().onboardingActive);
    installing(R"({"id":"codex","name":"Codex","install":{"state":"running"}})");
    world.model->openOnboarding(false);
    // The fake daemon wasn't started by the model, so it would survive the quit and is not asked about.
    EXPECT_EQ(world.state().supervisorStatus->mode, DaemonSupervisor::Mode::attached);
    EXPECT_TRUE(quits(false));
    EXPECT_EQ(asked, std::vector<std::string>());
    EXPECT_TRUE(quits(false)) << "a second request passes at once";
}

TEST_F(Quitting, beforeTheDaemonIsKnownAQuitAsksOnlyWhileSomethingInstalls) {
    world.make().openOnboarding(true);
    installing(
        R"({"id":"codex","install":{"state":"queued"}},{"id":"claude","install":{"state":"installed"}})");
    EXPECT_FALSE(quits(false));
    EXPECT_EQ(asked, std::vector<std::string>{"codex is installing. Quit anyway?"});
    installing(R"({"id":"claude","install":{"state":"installed"}})");
    EXPECT_TRUE(quits(false));
    EXPECT_EQ(asked.size(), 1U);
}

TEST(AppLifecycle, onlyTwoNumbersAreAWindowsSize) {
    EXPECT_EQ(AppLifecycle::windowSize("1200x800"), std::pair(1200, 800));
    for (const auto* text :
        {"1200", "1200x800x3", "1200x", "x800", "1200xhigh", "-5x800", "1e9x800", " 1200x800"})
        EXPECT_EQ(AppLifecycle::windowSize(text), std::nullopt) << text;
}

TEST(AppLifecycle, onlyAStoredFalseTakesTheApplicationOutOfTheDock) {
    MemoryDefaults defaults;
    EXPECT_TRUE(AppLifecycle::showsInDock(defaults));
    defaults.set("KDShowInDock", std::string("NO"));
    EXPECT_TRUE(AppLifecycle::showsInDock(defaults));
    defaults.set("KDShowInDock", false);
    EXPECT_FALSE(AppLifecycle::showsInDock(defaults));
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
    EXPECT_EQ(inspectorGroups(state)[0].rows, (std::vector<InspectorRow>{{"Cookie", "HttpOnly, in memory"},
                                                  {"Writes", "CSRF header on every write"}}));
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
