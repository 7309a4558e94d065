#include "Kelvadrome/model/Observation.h"
#include "Kelvadrome/model/TaskBag.h"

#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

TEST(Observation, manyChangesInOneTurnAreToldOnce) {
    TestLoop loop;
    ChangeAnnouncer changes(loop.executor());
    int told = 0;
    auto subscription = changes.observe([&] { ++told; });
    changes.changed();
    changes.changed();
    EXPECT_EQ(told, 0) << "never in the middle of the change";
    loop.drain();
    EXPECT_EQ(told, 1);
    changes.changed();
    loop.drain();
    EXPECT_EQ(told, 2);
    subscription.cancel();
    changes.changed();
    loop.drain();
    EXPECT_EQ(told, 2);
}

TEST(Observation, anObserverMayEndSubscriptionsAndChangeThingsItself) {
    TestLoop loop;
    std::optional<ChangeAnnouncer> changes(std::in_place, loop.executor());
    std::vector<std::string> told;
    Subscription second;
    auto first = changes->observe([&] {
        told.push_back("first");
        second.cancel();
        if (told.size() == 1)
            changes->changed();
    });
    second = changes->observe([&] { told.push_back("second"); });
    changes->changed();
    loop.drain();
    EXPECT_EQ(told, (std::vector<std::string>{"first", "first"}));
    changes->changed();
    changes.reset();
    loop.drain();
    EXPECT_EQ(told.size(), 2U) << "nothing is told of what is gone";
    first.cancel();
}

Task<> sleepThenCount(Clock& clock, int& ended, bool& cancelled) {
    auto slept = co_await attempt(clock.sleep(10));
    cancelled = !slept;
    ++ended;
}

TEST(TaskBag, forgetsWhatHasEndedAndEndsTheRestWhenClosed) {
    TestLoop loop;
    ManualClock clock;
    TaskBag bag(loop.executor());
    int ended = 0;
    bool cancelled = false;
    bag.launch("one", sleepThenCount(clock, ended, cancelled));
    loop.drain();
    loop.advance(clock, 10);
    EXPECT_EQ(ended, 1);
    EXPECT_FALSE(cancelled);
    EXPECT_EQ(bag.size(), 0U);

    bag.launch("two", sleepThenCount(clock, ended, cancelled));
    loop.drain();
    bag.launch("three", sleepThenCount(clock, ended, cancelled)); // hasn't begun yet
    bag.close();
    loop.drain();
    EXPECT_EQ(ended, 2);
    EXPECT_TRUE(cancelled);
    EXPECT_FALSE(bag.launch("four", sleepThenCount(clock, ended, cancelled)));
    loop.drain();
    EXPECT_EQ(ended, 2);
    EXPECT_EQ(clock.sleepers(), 0U);
}

} // namespace
} // namespace kelvadrome::test
