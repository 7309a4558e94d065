#include "tests/daemon/LoginItem.h"
#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

using Status = BackgroundServiceStatus;

TEST(LoginItem, isPreparedBeforeTheDaemonIsStartedSoThatNoChildDoublesIt) {
    LoginItem item;
    item.service->now = Status::enabled;
    World world;
    world.streamWanted = false;
    world.daemon->stop();
    world.background = item.background;
    world.make().start();
    // A login item's daemon gets the whole limit to come up.
    world.turnUntil([&] { return world.calls.has("delivery"); }, "the start to go on");
    EXPECT_EQ(world.state().backgroundState->status, Status::enabled);
    EXPECT_EQ(world.state().supervisorStatus->mode, DaemonSupervisor::Mode::starting);
    EXPECT_TRUE(world.launcher->commands.empty());
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

TEST(LoginItem, aChangeMadeElsewhereIsReadWithoutForgettingWhatWasSaid) {
    LoginItem item;
    item.installOldAgent();
    World world;
    world.background = item.background;
    world.start();
    const auto moved = world.state().backgroundState->migratedTo;
    ASSERT_TRUE(moved);
    item.service->now = Status::requiresApproval;
    world.model->refreshBackground();
    world.loop.until(
        [&] { return world.state().backgroundState->status == Status::requiresApproval; }, "the reading");
    EXPECT_EQ(world.state().backgroundState->migratedTo, moved);
}

} // namespace
} // namespace kelvadrome::test
