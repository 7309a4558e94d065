#include "KelvadromeKit/support/Observation.h"

#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

TEST(Observation, manyChangesInOneTurnAreToldOnceAndAnObserverMayEndSubscriptions) {
    TestLoop loop;
    std::optional<ChangeAnnouncer> changes(std::in_place, loop.executor());
    std::vector<std::string> told;
    Subscription second;
    const auto first = changes->observe([&] {
        told.push_back("first");
        second.cancel();
        if (told.size() == 1)
            changes->changed();
    });
    second = changes->observe([&] { told.push_back("second"); });
    changes->changed();
    changes->changed();
    EXPECT_TRUE(told.empty()) << "never in the middle of the change";
    loop.drain();
    EXPECT_EQ(told, (std::vector<std::string>{"first", "first"}));
    changes->changed();
    changes.reset();
    loop.drain();
    EXPECT_EQ(told.size(), 2U) << "nothing is told of what is gone";
}

} // namespace
} // namespace kelvadrome::test
