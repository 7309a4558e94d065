#include "Kelvadrome/model/AppLifecycle.h"
#include "Kelvadrome/model/MenuPanel.h"

#include "tests/daemon/LoginItem.h"
#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

using Status = BackgroundServiceStatus;

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
    ASSERT_EQ(state().supervisorStatus->mode, DaemonSupervisor::Mode::attached);
    installing(R"({"id":"codex","name":"Codex","install":{"state":"running"}})");
    EXPECT_TRUE(quits());
    EXPECT_TRUE(questions.empty());
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
    for (const auto* text : {"1200", "1200x800x3", "x800", "-5x800", "1e9x800", " 1200x800"})
        EXPECT_EQ(AppLifecycle::windowSize(text), std::nullopt) << text;
}

TEST(LoginItem, thatBringsNoDaemonIsWaitedForUntilTheUserAsksForOne) {
    for (const bool running : {true, false}) {
        SCOPED_TRACE(running ? "runs, but doesn't answer" : "is down");
        LoginItem item;
        item.service->now = Status::enabled;
        item.service->running = running;
        World world;
        world.streamWanted = false;
        item.background.effects.kickstart = [&] { world.serve(); };
        world.background = item.background;
        world.resources = item.folder / "res";
        installDaemon(*world.resources);
        world.daemon->on("/v1/health", FakeReply::failure("internal", "not yet", 500));
        world.launcher->onLaunch = [&](ScriptedChild&) { world.serve(); };
        world.make().start();
        // A login item's daemon gets the whole limit to come up.
        world.turnUntil([&] { return menuPanel(world.state(), WallTime()).retry.has_value(); }, "the offer");
        EXPECT_EQ(world.state().supervisorStatus->mode, DaemonSupervisor::Mode::starting);
        EXPECT_TRUE(world.launcher->commands.empty());

        world.model->retry();
        world.turnUntil([&] { return world.state().health.has_value(); }, "a daemon");
        EXPECT_EQ(world.launcher->commands.size(), running ? 0U : 1U) << "a child only beside no other";
    }
}

TEST(LoginItem, aChildMakesWayForItWhenTheUserWantsIt) {
    LoginItem item;
    World world;
    world.background = item.background;
    world.resources = item.folder / "res";
    installDaemon(*world.resources);
    world.daemon->on("/v1/health", FakeReply::failure("internal", "not yet", 500));
    world.launcher->onLaunch = [&](ScriptedChild&) { world.serve(); };
    world.start();
    EXPECT_EQ(world.state().supervisorStatus->mode, DaemonSupervisor::Mode::spawned);

    world.model->setBackground(true);
    world.turnUntil([&] { return world.state().supervisorStatus->mode == DaemonSupervisor::Mode::attached; },
        "the hand-over", 0.9); // the pauses in which the child ends
    EXPECT_EQ(world.state().backgroundState->status, Status::enabled);
    EXPECT_EQ(world.launcher->children.at(0)->asked, (std::vector<std::string>{"terminate", "close input"}));
    EXPECT_EQ(item.launchd, std::vector<std::string>{"kickstart"});
    EXPECT_EQ(world.launcher->commands.size(), 1U);
}

} // namespace
} // namespace kelvadrome::test
