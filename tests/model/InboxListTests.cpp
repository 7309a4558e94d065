#include "Kelvadrome/model/InboxList.h"

#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

using Words = std::vector<std::string>;

constexpr WallTime now = wallTime(1'800'000'000);

Card inTopic(Card card, const std::string& topic) {
    card.topic = topic;
    return card;
}

AppState ready(std::vector<Card> cards) {
    AppState state;
    state.connection = Connection::ready();
    state.cards = std::move(cards);
    return state;
}

Words shown(const AppState& state) {
    Words ids;
    for (const auto& row : inboxList(state, now).rows)
        ids.push_back(cardOf(row).id);
    return ids;
}

TEST(InboxList, everyOpenCardHasItsPlaceTheSnoozedOnesLast) {
    auto closed = World::card("closed");
    closed.state = "closed";
    auto state = ready({World::card("note", "receipt"), World::card("a"), closed, World::card("snoozed"),
        World::card("back"), World::card("b"), World::card("risky", "question", "high")});
    state.later = {{"snoozed", now + seconds(60)}, {"back", now - seconds(1)}};
    state.holds["gone"] = PanelHold{World::card("gone"), "Yes", now + seconds(1), 2.0, false};
    state.holds["b"] = PanelHold{World::card("b"), "Yes", now + seconds(1), 2.0, false};
    EXPECT_EQ(shown(state), (Words{"gone", "risky", "a", "back", "b", "note", "snoozed"}));

    const auto rows = inboxList(state, now).rows;
    EXPECT_TRUE(std::holds_alternative<HoldRow>(rows.at(4)))
        << "an answer on its way stays where its card was";
    EXPECT_EQ(std::get<PanelCard>(rows.back()).later, now + seconds(60));
    EXPECT_EQ(std::get<PanelCard>(rows.at(3)).later, std::nullopt);
    EXPECT_EQ(std::get<PanelCard>(rows.at(1)).actions.at(0).words, "Review in kelvadrome");
}

TEST(InboxList, theScopeHidesWhatBelongsElsewhereAndSaysHowMuch) {
    auto state = ready({inTopic(World::card("mine"), "t1"), inTopic(World::card("other"), "t2"),
        inTopic(World::card("unknown"), "t3"), World::card("none")});
    for (const auto& [id, scope] : std::map<std::string, std::string>{{"t1", "family"}, {"t2", "tolvena"}}) {
        BoardRow row;
        row.id = id;
        row.scope = scope;
        state.topics[id] = row;
    }
    EXPECT_EQ(shown(state).size(), 4U);
    state.scope = ScopeFilter::family;
    EXPECT_EQ(shown(state), Words{"mine"});
    EXPECT_EQ(inboxList(state, now).elsewhere, 3);
}

TEST(AnswerBatch, sendsOnesOwnAnswersAndLeavesHighRiskToThePage) {
    World world;
    world.start();
    auto batch = World::card("1", "batch");
    batch.rows = {{"lang", "Which?", "Rust", ""}, {"ci", "Which CI?", std::nullopt, ""}};
    world.model->answerBatch(batch, {{"lang", "C++"}, {"ci", "ours"}});
    EXPECT_EQ(world.state().holds.at("1").label, "2 answers");
    batch.risk = "high";
    batch.id = "2";
    world.model->answerBatch(batch, {{"lang", "C++"}, {"ci", "ours"}});
    EXPECT_FALSE(world.state().holds.contains("2"));
    batch.risk = "low";
    batch.rows->at(1).defaultAnswer = "ours";
    world.model->answerBatch(batch, {{"lang", "Rust"}, {"ci", "ours"}});
    EXPECT_EQ(world.state().holds.at("2").label, "Accept 2 defaults");
}

} // namespace
} // namespace kelvadrome::test
