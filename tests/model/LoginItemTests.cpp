#include "tests/daemon/LoginItem.h"
#include "tests/model/World.h"

#include <fstream>

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
    world.loop.until(
        [&] {
            const auto next = world.clock->untilNext();
            if (next > 0)
                world.clock->advance(next);
            return world.calls.has("delivery");
        },
        "the start to go on");
    EXPECT_EQ(world.state().backgroundState->status, Status::enabled);
    EXPECT_EQ(world.state().supervisorStatus->mode, DaemonSupervisor::Mode::starting);
    EXPECT_TRUE(world.launcher->commands.empty());
}

TEST(LoginItem, aChildMakesWayForItWhenTheUserWantsIt) {
    LoginItem item;
    World world;
    world.background = item.background;
    std::filesystem::create_directories(item.folder / "res/node/bin");
    std::filesystem::create_directories(item.folder / "res/kelvadrome");
    std::ofstream(item.folder / "res/kelvadrome/kelvadromed-app.mjs") << "";
    std::ofstream(item.folder / "res/node/bin/node") << "";
    std::filesystem::permissions(item.folder / "res/node/bin/node", std::filesystem::perms::owner_all);
    world.resources = item.folder / "res";
    world.daemon->on("/v1/health", FakeReply::failure("internal", "not yet", 500));
    world.launcher->onLaunch = [&](ScriptedChild&) { world.serve(); };
    world.start();
    EXPECT_EQ(world.state().supervisorStatus->mode, DaemonSupervisor::Mode::spawned);

    world.model->setBackground(true);
    world.loop.until(
        [&] {
            const auto next = world.clock->untilNext(); // the pauses in which the child ends
            if (next > 0 && next < 1)
                world.clock->advance(next);
            return world.state().supervisorStatus->mode == DaemonSupervisor::Mode::attached;
        },
        "the hand-over");
    EXPECT_EQ(world.state().backgroundState->status, Status::enabled);
    EXPECT_EQ(world.launcher->children.at(0)->asked, (std::vector<std::string>{"terminate", "close input"}));
    EXPECT_EQ(item.launchd, std::vector<std::string>{"kickstart"});
    EXPECT_EQ(world.launcher->commands.size(), 1U);

    world.model->setBackground(false);
    world.loop.until(
        [&] { return world.state().backgroundState->status == Status::notRegistered; }, "the change");
    EXPECT_EQ(item.launchd.size(), 1U);
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
    EXPECT_EQ(world.state().backgroundState->status, Status::requiresApproval);
    EXPECT_EQ(world.state().backgroundState->migratedTo, moved);

    World without;
    without.make().refreshBackground();
    without.model->setBackground(true);
    without.loop.drain();
    EXPECT_EQ(without.state().backgroundState, std::nullopt);
}

} // namespace
} // namespace kelvadrome::test
