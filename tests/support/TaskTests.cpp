#include "tests/support/TestLoop.h"

#include <boost/asio/strand.hpp>
#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

Task<> sleepThenMark(
    std::shared_ptr<Clock> clock, double duration, std::shared_ptr<std::vector<double>> marks) {
    co_await clock->sleep(duration);
    marks->push_back(duration);
}

Task<int> valueOrThrow(int value) {
    if (value < 0)
        throw std::runtime_error("negative");
    co_return value;
}

Task<int> heldWhile(std::shared_ptr<int> held, std::shared_ptr<std::optional<Completion<int>>> ending) {
    auto wait = suspendUntil<int>([held, ending](Completion<int> completion) { *ending = completion; });
    const int result = co_await std::move(wait);
    co_return result;
}

} // namespace

TEST(Tasks, sleepersWakeInOrderAndACancelledOneDoesNotGoOn) {
    TestLoop loop;
    auto clock = std::make_shared<ManualClock>();
    auto marks = std::make_shared<std::vector<double>>();
    spawn(loop.executor(), "late", sleepThenMark(clock, 3, marks));
    const auto cancelled = spawn(loop.executor(), "cancelled", sleepThenMark(clock, 2, marks));
    spawn(loop.executor(), "early", sleepThenMark(clock, 1, marks));
    loop.drain();
    ASSERT_EQ(clock->sleepers(), 3u);
    cancelled.cancel();
    loop.advance(*clock, 10);
    EXPECT_EQ(*marks, (std::vector<double>{1, 3}));
}

TEST(Tasks, aShieldedTaskRunsToItsEndAndTheCallerIsCancelledAfterIt) {
    TestLoop loop;
    auto clock = std::make_shared<ManualClock>();
    auto marks = std::make_shared<std::vector<double>>();
    const auto handle = spawn(loop.executor(), "shielded",
        [](std::shared_ptr<Clock> clock, std::shared_ptr<std::vector<double>> marks) -> Task<> {
            co_await shielded(sleepThenMark(clock, 1, marks));
            co_await sleepThenMark(clock, 2, marks);
        }(clock, marks));
    loop.drain();
    handle.cancel();
    loop.advance(*clock, 10);
    EXPECT_EQ(*marks, (std::vector<double>{1}));
    EXPECT_EQ(clock->sleepers(), 0u);
}

TEST(Tasks, whatASuspensionCapturesIsLetGoOnce) {
    TestLoop loop;
    const auto held = std::make_shared<int>(1);
    const auto ending = std::make_shared<std::optional<Completion<int>>>();
    int result = 0;
    asio::co_spawn(
        loop.executor(), heldWhile(held, ending), [&](std::exception_ptr, int value) { result = value; });
    loop.drain();
    EXPECT_GT(held.use_count(), 1);
    ending->value()(5);
    loop.drain();
    EXPECT_EQ(result, 5);
    ending->reset();
    EXPECT_EQ(held.use_count(), 1);
}

// The main loop of the desktop is such an executor: whatever it is given waits for its next turn, in which
// the task and its signal may be gone.
TEST(Tasks, aCancellationReachesTheTaskInTheTurnInWhichItArrives) {
    asio::io_context context;
    const Executor later = asio::require(context.get_executor(), asio::execution::blocking.never);
    const Executor strand = asio::make_strand(later);
    const auto ending = std::make_shared<std::optional<Completion<int>>>();
    const auto cancelled = std::make_shared<int>(0);
    const auto wait = [](auto ending, auto cancelled) -> Task<int> {
        auto start = [ending, cancelled](Completion<int> completion) {
            *ending = completion;
            return [cancelled] { ++*cancelled; };
        };
        co_return co_await suspendUntil<int>(std::move(start));
    };
    const auto outer = [](Executor on, Task<int> task) -> Task<> { co_await runOn(on, std::move(task)); };
    const auto handle = spawn(later, "outer", outer(strand, wait(ending, cancelled)));
    context.poll();
    ASSERT_TRUE(*ending);
    handle.cancel();
    ASSERT_EQ(context.poll_one(), 1u); // the caller hears of it, and asks the strand
    ASSERT_EQ(context.poll_one(), 1u);
    EXPECT_EQ(*cancelled, 1);
    ending->value()(1);
    ending->reset();
    context.poll();
}

TEST(Tasks, gatherKeepsEachFailureToItself) {
    TestLoop loop;
    auto [first, second, third] = loop.run(gather(valueOrThrow(1), valueOrThrow(-1), valueOrThrow(3)));
    EXPECT_EQ(first.take(), 1);
    EXPECT_FALSE(second);
    EXPECT_THROW(second.take(), std::runtime_error);
    EXPECT_EQ(third.take(), 3);
}

TEST(Tasks, aBlockedPoolStillTakesMoreWork) {
    TestLoop loop;
    std::mutex gate;
    gate.lock();
    auto blocked = std::make_shared<bool>(false);
    spawn(loop.executor(), "blocked",
        [](BackgroundPool* pool, std::mutex* gate, std::shared_ptr<bool> done) -> Task<> {
            co_await pool->run([gate] { std::lock_guard guard(*gate); });
            *done = true;
        }(&loop.pool(), &gate, blocked));
    loop.drain();
    EXPECT_EQ(loop.run(loop.pool().run([] { return 7; })), 7);
    EXPECT_FALSE(*blocked);
    gate.unlock();
    loop.until([&] { return *blocked; }, "the blocked job");
}
