#include "Kelvadrome/gtk/MainLoop.h"
#include "KelvadromeKit/support/Clock.h"

#include <gtest/gtest.h>

namespace kelvadrome {
namespace {

Task<> sleepTwice(std::shared_ptr<Clock> clock, std::shared_ptr<std::vector<bool>> slept) {
    auto [first, second] = co_await gather(clock->sleep(60), clock->sleep(60));
    slept->assign({bool(first), bool(second)});
}

// Asio throws out of the loop what it can't tell a task that is cancelled before it began.
TEST(MainLoop, aCancellationThatWaitsItsTurnFindsTheTasksItIsForBegun) {
    MainLoop loop;
    const auto clock = std::make_shared<SystemClock>();
    const auto slept = std::make_shared<std::vector<bool>>();
    spawn(loop.executor(), "sleeping", sleepTwice(clock, slept)).cancel();
    loop.runUntil([&] { return !slept->empty(); }, 5);
    EXPECT_EQ(*slept, (std::vector{false, false}));
}

} // namespace
} // namespace kelvadrome
