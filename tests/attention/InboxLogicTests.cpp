#include "KelvadromeKit/attention/InboxLogic.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

namespace {

Card card(std::string id, std::string kind = "question", std::string risk = "low", bool blocking = true) {
    Card made;
    made.id = std::move(id);
    made.kind = std::move(kind);
    made.risk = std::move(risk);
    made.blocking = blocking;
    made.title = "Title of " + made.id;
    made.openedAt = "2026-01-02T03:04:05Z";
    return made;
}

std::vector<std::string> ids(const std::vector<Card>& cards) {
    std::vector<std::string> result;
    for (const auto& one : cards)
        result.push_back(one.id);
    return result;
}

BatchRow row(std::string id, std::optional<std::string> answer, std::string state = "waiting") {
    return {std::move(id), "?", std::move(answer), std::move(state)};
}

} // namespace

TEST(InboxLogic, riskOutweighsBlockingAndEqualCardsKeepTheDaemonsOrder) {
    const std::vector<Card> cards = {card("a", "question", "low", false), card("b"),
        card("c", "stop", "high", false), card("d"), card("e", "stop", "high")};
    EXPECT_EQ(ids(InboxLogic::ordered(cards)), (std::vector<std::string>{"e", "c", "b", "d", "a"}));
}

TEST(InboxLogic, onlyLiveCardsOfAskingKindsNeedTheUser) {
    const struct {
        const char *kind, *state;
        bool needs;
    } rows[] = {{"stop", "open", true}, {"batch", "held", true}, {"precedent", "armed", true},
        {"receipt", "open", false}, {"stop", "closed", false}, {"question", "answered", false}};
    for (const auto& row : rows) {
        auto made = card("x", row.kind);
        made.state = row.state;
        EXPECT_EQ(InboxLogic::needsYou(made), row.needs) << row.kind << " " << row.state;
    }
}

TEST(InboxLogic, aStopSaysWhatIsAtStakeWithoutTheTitleWhenItIsAPayment) {
    auto stop = card("x", "stop", "high");
    EXPECT_EQ(InboxLogic::summary(stop), "Title of x");
    stop.refs = std::map<std::string, std::string>{{"action_class", "pay.card"}};
    EXPECT_EQ(InboxLogic::summary(stop), "Payment page reached. The card field stays with you.");
    stop.refs.reset();
    stop.stopType = "payment_final";
    stop.body = "Amount as read: $12.50\nWithin the limit";
    EXPECT_EQ(InboxLogic::summary(stop),
        "Payment page reached. $12.50, within your limit. The card field stays with you.");
}

TEST(InboxLogic, aBatchIsAcceptedInOneStrokeOnlyWhenAllOfItHasDefaults) {
    auto batch = card("x", "batch");
    EXPECT_EQ(InboxLogic::summary(batch), "0 questions, defaults ready.");
    EXPECT_FALSE(InboxLogic::batchDefaults(batch));
    batch.rows = {row("1", "a"), row("2", std::nullopt), row("3", "c", "working")};
    EXPECT_EQ(InboxLogic::summary(batch), "3 questions, 2 of 3 defaults ready. Agent still working.");
    EXPECT_FALSE(InboxLogic::batchDefaults(batch));
    batch.rows = {row("1", "a"), row("2", "b"), row("1", "c")};
    EXPECT_EQ(InboxLogic::summary(batch), "3 questions, defaults ready.");
    EXPECT_EQ(InboxLogic::batchDefaults(batch), (std::map<std::string, std::string>{{"1", "c"}, {"2", "b"}}));
    batch.kind = "question";
    EXPECT_FALSE(InboxLogic::batchDefaults(batch));

    auto question = card("q");
    question.defaultAnswer = "";
    EXPECT_FALSE(InboxLogic::suggested(question));
    question.defaultAnswer = "Yes";
    EXPECT_EQ(InboxLogic::suggested(question), "Yes");
    question.kind = "stop";
    EXPECT_FALSE(InboxLogic::suggested(question));
}

TEST(InboxLogic, everyStatusHasItsLampAndItsWord) {
    using InboxLogic::Lamp;
    const struct {
        const char *status, *word;
        Lamp lamp;
    } rows[] = {{"busy", "working", Lamp::working}, {"working", "working", Lamp::working},
        {"running", "working", Lamp::working}, {"editing", "editing", Lamp::working},
        {"searching", "searching", Lamp::working}, {"waiting_me", "needs you", Lamp::needsYou},
        {"needs_you", "needs you", Lamp::needsYou}, {"blocked", "blocked", Lamp::needsYou},
        {"failed", "failed", Lamp::failed}, {"error", "error", Lamp::failed},
        {"crashed", "crashed", Lamp::failed}, {"waiting", "waiting", Lamp::idle},
        {"idle", "idle", Lamp::idle}, {"ended", "ended", Lamp::idle}, {"closed", "ended", Lamp::idle},
        {"stalled_out", "stalled out", Lamp::idle}};
    for (const auto& row : rows) {
        EXPECT_EQ(InboxLogic::lamp(row.status, "reads"), row.lamp) << row.status;
        EXPECT_EQ(InboxLogic::statusWord(row.status, false, false, ""), row.word) << row.status;
    }
    for (const auto* detail : {"Waits for you", "NEEDS YOU now"})
        EXPECT_EQ(InboxLogic::lamp("failed", detail), Lamp::needsYou);
    EXPECT_EQ(InboxLogic::statusWord("idle", true, true, "reads"), "reads");
    EXPECT_EQ(InboxLogic::statusWord("idle", true, true, {}), "holding Edge");
    EXPECT_EQ(InboxLogic::statusWord("idle", false, true, {}), "queued");
}

TEST(InboxLogic, sessionsFromCardsFoldBySessionWithTheMostUrgentStatus) {
    auto calm = card("calm", "receipt");
    auto urgent = card("urgent", "stop", "high");
    auto other = card("other", "question", "low", false);
    auto gone = card("gone");
    calm.agent = urgent.agent = other.agent = gone.agent = "claude";
    calm.sessionId = urgent.sessionId = "1";
    other.sessionId = "2";
    gone.sessionId = "3";
    gone.state = "closed";
    const auto sessions = InboxLogic::sessionsFromCards({calm, other, urgent, gone, card("nobody")});
    ASSERT_EQ(sessions.size(), 2u);
    EXPECT_EQ(sessions[0].sessionId, "1");
    EXPECT_EQ(sessions[0].status, "waiting_me");
    EXPECT_EQ(sessions[1].sessionId, "2");
    EXPECT_EQ(sessions[1].status, "idle");
}
