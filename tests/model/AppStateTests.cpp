#include "Kelvadrome/model/AppState.h"

#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

constexpr WallTime now = wallTime(1'800'000'000);

Card question(const std::string& id, const std::string& risk = "low") {
    Card card;
    card.id = id;
    card.kind = "question";
    card.risk = risk;
    card.title = id;
    card.openedAt = "2027-01-15T08:00:00Z";
    return card;
}

AgentsStatus::Session session(const std::string& id, const std::string& status) {
    AgentsStatus::Session result;
    result.agent = "claude";
    result.sessionId = id;
    result.status = status;
    return result;
}

AgentsStatus::Lock lockOn(const std::string& resource, std::optional<AgentsStatus::Holder> holder) {
    return {resource, std::move(holder), 0};
}

PanelHold holdOf(const Card& card, double secondsLeft) {
    return {card, "Yes", now + seconds(secondsLeft), 2.0, false};
}

AppState withCards(const std::vector<std::string>& ids) {
    AppState state;
    for (const auto& id : ids)
        state.cards.push_back(question(id));
    return state;
}

std::vector<std::string> shown(const AppState& state) {
    std::vector<std::string> ids;
    for (const auto& card : panelCards(state, now))
        ids.push_back(card.id);
    return ids;
}

using Ids = std::vector<std::string>;

TEST(AppState, thePanelShowsThreeRowsAndPutsHeldCardsThatAreGoneInFront) {
    EXPECT_EQ(shown(AppState{}), Ids{});
    auto state = withCards({"a", "b", "c", "d", "e"});
    EXPECT_EQ(shown(state), (Ids{"a", "b", "c"}));
    state.holds["gone"] = holdOf(question("gone"), 1);
    EXPECT_EQ(shown(state), (Ids{"gone", "a", "b"}));
    state.holds["later"] = holdOf(question("later"), 2);
    EXPECT_EQ(shown(state), (Ids{"later", "gone", "a"})) << "each is put in front in turn, earliest first";
    state.cards[2].risk = "high";
    state.holds.clear();
    EXPECT_EQ(shown(state), (Ids{"c", "a", "b"}));
}

TEST(AppState, aSnoozedCardIsHiddenUntilItsTimeUnlessItIsBeingAnswered) {
    auto state = withCards({"a", "b"});
    state.later["a"] = now + seconds(1);
    EXPECT_EQ(shown(state), Ids{"b"});
    state.later["a"] = now;
    EXPECT_EQ(shown(state), Ids{"b"});
    state.later["a"] = now - seconds(0.001);
    EXPECT_EQ(shown(state), (Ids{"a", "b"}));
    state.later["a"] = now + seconds(1000);
    state.holds["a"] = holdOf(state.cards[0], 1);
    EXPECT_EQ(shown(state), (Ids{"a", "b"}));
}

TEST(AppState, theDaemonsCountsAndSessionsGoBeforeOurOwn) {
    auto state = withCards({"a", "b"});
    state.cards[0].agent = "codex";
    state.cards[1].kind = "receipt";
    EXPECT_EQ(needsYouCount(state), 1);
    ASSERT_EQ(agentRows(state).size(), 1U);
    EXPECT_EQ(agentRows(state)[0].status, "waiting_me");
    state.agents = AgentsStatus{};
    EXPECT_EQ(agentRows(state).size(), 1U) << "an empty list counts as none";

    state.agents->sessions = {session("1", "busy"), session("2", "idle")};
    state.agents->sessions[1].detail = "needs you";
    EXPECT_EQ(agentRows(state).size(), 2U);
    EXPECT_EQ(agentsWorking(state), 1);
    state.counts = InboxCounts{.needsYou = 7, .agentsWorking = 4};
    EXPECT_EQ(needsYouCount(state), 7);
    EXPECT_EQ(agentsWorking(state), 4);
}

TEST(AppState, theEdgeBrowserIsHeldForTheSessionThatItsHolderNames) {
    AppState state;
    auto review = session("1", "busy");
    review.label = "Review";
    EXPECT_FALSE(holdsEdge(state, review));
    state.agents = AgentsStatus{};
    state.agents->locks = {
        lockOn("printer", AgentsStatus::Holder{{}, "review"}), lockOn("edge", std::nullopt)};
    EXPECT_TRUE(edgeLock(state));
    EXPECT_FALSE(holdsEdge(state, review)) << "nobody holds it";
    state.agents->locks[1].holder = AgentsStatus::Holder{"H-12 REVIEW of April", {}};
    EXPECT_TRUE(holdsEdge(state, review));
    state.agents->locks[1].holder = AgentsStatus::Holder{{}, "Claude review"};
    EXPECT_TRUE(holdsEdge(state, review));
    review.label.reset();
    EXPECT_FALSE(holdsEdge(state, review));
    state.agents->locks[1].holder->handoff = "#4";
    EXPECT_TRUE(holdsEdge(state, review));
}

TEST(AppState, aTopicHasATitleWhenItIsOnTheBoard) {
    AppState state;
    state.topics["t1"] = {"t1", "Taxes", std::nullopt, 0};
    EXPECT_EQ(topicTitle(state, "t1"), "Taxes");
    EXPECT_EQ(topicTitle(state, "t2"), std::nullopt);
    EXPECT_EQ(topicTitle(state, std::nullopt), std::nullopt);
}

} // namespace
} // namespace kelvadrome::test
