#include "KelvadromeKit/delivery/ConsentGuard.h"
#include "KelvadromeKit/delivery/SystemHostAccess.h"

#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

#include <latch>

namespace kelvadrome::test {
namespace {

TEST(ConsentGuard, anAnswerComesThroughAndTheNextCallIsFree) {
    const ConsentGuard guard(
        [](const std::string& bundle) { return ConsentCode(bundle == "a" ? 0 : consentDenied); });
    EXPECT_EQ(guard.consent("a"), 0);
    EXPECT_EQ(guard.consent("b"), consentDenied);
}

TEST(ConsentGuard, whileACallHangsAllGetNoAnswerAndNoneIsAdded) {
    struct Stuck {
        std::latch release{1};
        std::latch returned{1};
        std::atomic<int> calls = 0;
    };
    const auto stuck = std::make_shared<Stuck>();
    const ConsentGuard guard([stuck](const std::string&) {
        if (++stuck->calls == 1) {
            stuck->release.wait();
            stuck->returned.count_down();
        }
        return ConsentCode(0);
    });
    EXPECT_EQ(guard.consent("a"), std::nullopt); // after its second
    EXPECT_EQ(guard.consent("a"), std::nullopt);
    EXPECT_EQ(stuck->calls, 1);
    stuck->release.count_down();
    stuck->returned.wait();
    ConsentCode code;
    while (!(code = guard.consent("a")))
        std::this_thread::yield(); // the call is over in a moment
    EXPECT_EQ(code, 0);
    EXPECT_EQ(stuck->calls, 2);
}

TEST(SystemHostAccess, aSystemWithoutConsentHasNoOpinion) {
    TestLoop loop;
    const SystemHostAccess access({nullptr, nullptr, [] { return true; }});
    EXPECT_EQ(access.probe().consent("a"), std::nullopt);
    EXPECT_TRUE(access.probe().screenLocked());
    EXPECT_EQ(access.automation().check("a"), std::nullopt);
    EXPECT_EQ(loop.run(access.automation().request("a")), std::nullopt);
}

TEST(SystemHostAccess, questionsAreAskedOneAfterTheOther) {
    TestLoop loop;
    std::atomic<int> open = 0, most = 0;
    const SystemHostAccess access({nullptr,
        [&](const std::string& bundle) {
            const int now = ++open;
            if (now > most)
                most = now;
            std::this_thread::yield();
            --open;
            return ConsentCode(bundle == "a" ? 0 : consentDenied);
        },
        [] { return false; }});
    const auto probe = access.automation();
    auto [a, b] = loop.run(gather(probe.request("a"), probe.request("b")));
    EXPECT_EQ(a.take(), 0);
    EXPECT_EQ(b.take(), consentDenied);
    EXPECT_EQ(most, 1);
}

Task<> awaitAnswer(AutomationProbe probe, std::shared_ptr<bool> kept) {
    co_await probe.request("a");
    *kept = true;
}

TEST(SystemHostAccess, aQuestionLeftOpenAtTheEndLetsItsCallerGoAndReachesNobody) {
    const auto answered = std::make_shared<std::latch>(1);
    const auto shown = std::make_shared<std::latch>(1);
    std::weak_ptr<bool> caller;
    {
        TestLoop loop;
        const SystemHostAccess access({nullptr,
            [=](const std::string&) {
                shown->count_down();
                answered->wait();
                return ConsentCode(0);
            },
            [] { return false; }});
        auto kept = std::make_shared<bool>(false);
        caller = kept;
        spawn(loop.executor(), "question", awaitAnswer(access.automation(), std::move(kept)));
        loop.drain();
        shown->wait();
        EXPECT_FALSE(caller.expired());
    }
    EXPECT_TRUE(caller.expired());
    answered->count_down(); // the answer to a loop that is gone
}

} // namespace
} // namespace kelvadrome::test
