#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

using Words = std::vector<std::string>;

TEST(StopNotifications, aNotificationGoesWhenTheLastOfItsStopsIsOver) {
    World world;
    const auto stop = [](const char* id) { return World::cardJSON(id, "stop", "high"); };
    world.cards({stop("1"), stop("2")});
    world.start();
    world.cards({stop("2"), stop("3")});
    world.refresh();
    world.loop.until([&] { return world.notifier->posted.size() == 2; }, "the second notification");
    EXPECT_EQ(world.notifier->withdrawn, Words{}) << "2 is open still";
    world.cards({World::cardJSON("2", "stop", "high", R"(,"state":"closed")"), stop("3")});
    world.refresh();
    EXPECT_EQ(world.notifier->withdrawn, Words{"1"});
    world.loop.run(world.model->stop());
    EXPECT_EQ(world.notifier->withdrawn, (Words{"1", "2"})) << "a press would reach nobody";
}

} // namespace
} // namespace kelvadrome::test
