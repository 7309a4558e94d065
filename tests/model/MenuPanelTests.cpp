#include "Kelvadrome/model/InboxList.h"
#include "Kelvadrome/model/MenuPanel.h"

#include "tests/model/Cards.h"

#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

using Words = std::vector<std::string>;

Words ids(const std::vector<PanelRow>& rows) {
    Words ids;
    for (const auto& row : rows)
        ids.push_back(cardOf(row).id);
    return ids;
}

Words shown(const AppState& state, WallTime at = now) {
    return ids(menuPanel(state, at).rows);
}

PanelCard firstCard(const AppState& state) {
    return std::get<PanelCard>(menuPanel(state, now).rows.at(0));
}

HoldRow firstHold(const AppState& state, double later) {
    return std::get<HoldRow>(menuPanel(state, now + seconds(later)).rows.at(0));
}

Words offers(const AppState& state) {
    Words all;
    for (const auto& action : firstCard(state).actions)
        all.push_back(action.words);
    return all;
}

TEST(MenuPanel, threeRowsShowAndHeldCardsThatAreGoneStandInFront) {
    auto state = ready({card("a"), card("b"), card("c"), card("d")});
    EXPECT_EQ(shown(state), (Words{"a", "b", "c"}));
    state.holds["gone"] = holdOf(card("gone"), 1);
    EXPECT_EQ(shown(state), (Words{"gone", "a", "b"}));
    state.holds["later"] = holdOf(card("later"), 2);
    EXPECT_EQ(shown(state), (Words{"later", "gone", "a"})) << "each is put in front in turn, earliest first";
    state.cards[2].risk = "high";
    state.holds.clear();
    EXPECT_EQ(shown(state), (Words{"c", "a", "b"}));
}

TEST(MenuPanel, aSnoozedCardIsHiddenUntilItsTimeUnlessItIsBeingAnswered) {
    auto state = ready({card("a"), card("b")});
    state.later["a"] = now + seconds(1);
    EXPECT_EQ(shown(state), Words{"b"});
    EXPECT_EQ(shown(state, now + seconds(1)), Words{"b"});
    EXPECT_EQ(shown(state, now + seconds(1.001)), (Words{"a", "b"}));
    state.holds["a"] = holdOf(state.cards[0], 1);
    EXPECT_EQ(shown(state), (Words{"a", "b"}));
}

TEST(MenuPanel, theDaemonsCountsAndSessionsGoBeforeOurOwn) {
    auto state = ready({card("a"), card("b", "receipt")});
    state.cards[0].agent = "codex";
    EXPECT_EQ(menuPanel(state, now).needsYou, 1);
    state.agents.emplace();
    ASSERT_EQ(agentRows(state).size(), 1U) << "an empty list counts as none";
    EXPECT_EQ(agentRows(state)[0].status, "waiting_me");
    state.agents->sessions = {session("claude", "1", "busy"), session("claude", "2", "idle")};
    EXPECT_EQ(menuPanel(state, now).relief, "1 agent working");
    state.counts = InboxCounts{.needsYou = 7, .agentsWorking = 4};
    const auto panel = menuPanel(state, now);
    EXPECT_EQ(panel.header, "7 need you");
    EXPECT_EQ(panel.relief, "4 agents working");
    EXPECT_EQ(panel.more, "6 more in the Inbox");
    state.counts->needsYou = 0;
    EXPECT_EQ(menuPanel(state, now).more, std::nullopt) << "one shows";
    state.counts->needsYou = 1;
    state.later["a"] = now + seconds(60);
    EXPECT_EQ(menuPanel(state, now).more, "1 more in the Inbox");
    EXPECT_EQ(menuPanel(state, now).title, "Nothing to answer here now") << "not \"All clear\" beside that";
    state.cards.clear();
    EXPECT_FALSE(inboxList(state, now).clear);
}

TEST(MenuPanel, theBodyFollowsTheConnection) {
    auto state = ready({card("a")});
    EXPECT_EQ(menuBarLabel(state), "1");
    state.connection = Connection::starting();
    EXPECT_EQ(menuPanel(state, now).title, "Starting the daemon");
    EXPECT_TRUE(shown(state).empty());
    state.connection = Connection::failed("kelvadromed did not start.");
    EXPECT_TRUE(menuPanel(state, now).retry && shown(state).empty());

    state = ready();
    EXPECT_EQ(menuPanel(state, now).title, "All clear");
    EXPECT_EQ(menuBarLabel(state), std::nullopt);
    state.onboardingActive = true;
    EXPECT_EQ(menuBarLabel(state), "Finish setup");
}

TEST(MenuPanel, aCardOffersWhatItsKindAllows) {
    auto question = card("q");
    EXPECT_EQ(offers(ready({question})), (Words{"Snooze", "Dismiss…"}));
    question.defaultAnswer = "Yes, go on";
    const auto suggested = firstCard(ready({question})).actions.at(0);
    EXPECT_EQ(suggested.kind, PanelAction::Kind::answer);
    EXPECT_EQ(suggested.answer, "Yes, go on");

    auto batch = card("b", "batch");
    batch.rows = {{"q1", "One?", "yes", ""}, {"q2", "Two?", "no", ""}};
    EXPECT_EQ(offers(ready({batch})), (Words{"Accept 2 defaults", "Snooze", "Dismiss…"}));
    batch.rows->push_back({"q3", "Three?", {}, ""});
    EXPECT_EQ(offers(ready({batch})), (Words{"Snooze", "Dismiss…"}));

    question.risk = "high"; // not even its suggestion may go out from here
    batch.rows->pop_back();
    batch.risk = "high";
    for (const auto& high : {card("s", "stop", "high"), question, batch}) {
        EXPECT_TRUE(firstCard(ready({high})).highRisk) << high.id;
        EXPECT_EQ(offers(ready({high})), (Words{"Review in kelvadrome", "Snooze", "Dismiss…"})) << high.id;
    }
}

TEST(MenuPanel, anAnswerWithoutAReplyStaysToldWhateverTheBodyShows) {
    auto state = ready({card("q")});
    state.cards[0].agent = "codex";
    state.holds["q"] = holdOf(state.cards[0], 2);
    state.pressed["q"] = {.card = state.cards[0], .label = "Yes"};
    EXPECT_EQ(firstHold(state, 2.9).words, "Sending in a moment. Undo.");
    EXPECT_EQ(firstHold(state, 3).words, "No answer from the daemon yet: it may or may not have been taken.");
    EXPECT_TRUE(firstHold(state, 3).undo);
    const auto late = now + seconds(2.5);
    EXPECT_NEAR(menuPanelChangesIn(menuPanel(state, late), state, late).value(), 0.5, 1e-6);

    const auto told = [&](double later) { return menuPanel(state, now + seconds(later)).pressed; };
    EXPECT_TRUE(told(3).empty()) << "its row tells it";
    state.connection = Connection::starting();
    EXPECT_EQ(told(1), Words{"“Yes” for Codex, “q”: being sent."});
    EXPECT_TRUE(told(3).at(0).starts_with("“Yes” for Codex, “q”: No answer from the daemon yet"));
    state.pressed["q"].known = PressedAnswer::Known::refused;
    EXPECT_TRUE(told(3).empty()) << "its end is known";
}

TEST(MenuPanel, anAnswerFromAnotherSurfaceLeavesNothingToPressButUndo) {
    auto asked = card("q");
    asked.defaultAnswer = "Yes";
    asked.agent = "codex";
    for (const auto& [cardState, way, wanted] : std::vector<std::tuple<std::string, std::string, Words>>{
             {"held", "An answer is on hold for Codex.", {"Undo"}},
             {"armed", "An answer is on its way to Codex.", {}},
             {"open", "", {"Yes", "Snooze", "Dismiss…"}}}) {
        asked.state = cardState;
        EXPECT_EQ(firstCard(ready({asked})).way, way);
        EXPECT_EQ(firstCard(ready({asked})).takesAnswer(), cardState == "open");
        EXPECT_EQ(offers(ready({asked})), wanted) << cardState;
    }
}

TEST(MenuPanel, whatCannotBeTypedOrMayHaveBeenIsNotOfferedAtOnePress) {
    auto asked = card("q");
    asked.defaultAnswer = "Yes";
    asked.refs.emplace()["last_refusal"] = "the pane is closed";
    EXPECT_EQ(firstCard(ready({asked})).refused, "the pane is closed");
    asked.refs->at("last_refusal") += ". Some keys may have been typed.";
    EXPECT_EQ(offers(ready({asked})), (Words{"Snooze", "Dismiss…"}));
    EXPECT_TRUE(firstCard(ready({asked})).takesAnswer()) << "after a look at the terminal";
    auto batch = card("b", "batch");
    batch.rows = {{"q1", "One?", "yes", ""}};
    batch.refs = asked.refs;
    EXPECT_EQ(offers(ready({batch})), (Words{"Snooze", "Dismiss…"}));
    EXPECT_TRUE(
        firstCard(ready({asked})).refusal().starts_with("Look at its terminal before you answer again: the"));
    asked.refs.reset();
    asked.maybeTyped = true;
    EXPECT_EQ(offers(ready({asked})), (Words{"Snooze", "Dismiss…"}));
    asked.maybeTyped = false;
    asked.answerable = false;
    EXPECT_EQ(offers(ready({asked})), (Words{"Review in kelvadrome", "Snooze", "Dismiss…"}));
    EXPECT_FALSE(firstCard(ready({asked})).takesAnswer());
}

TEST(MenuPanel, whatIsToBeReadFirstCannotBePushedOutOfSight) {
    auto asked = card("q");
    asked.body = "\n\n \t\nls" + std::string(300, ' ') + "; rm -rf \x1b[2J\u202e/\nb\r\nc\nd\ne";
    const auto opening = firstCard(ready({asked})).opening;
    EXPECT_EQ(opening.text, "ls ; rm -rf \uFFFD[2J\uFFFD/\nb\nc\nd");
    EXPECT_TRUE(opening.more);
    asked.body = std::string(5000, 'x');
    EXPECT_TRUE(firstCard(ready({asked})).opening.more) << "one endless line";
    auto batch = card("b", "batch");
    batch.rows = {{"q1", "One?", "yes", ""}, {"q2", "Two?", {}, ""}};
    EXPECT_EQ(
        firstCard(ready({batch})).opening, (CardOpening{"b\n· One? Default: yes\n· Two? No default", false}));
}

TEST(MenuPanel, itKnowsWhenTimeChangesIt) {
    const auto changesIn = [](const AppState& state) {
        return menuPanelChangesIn(menuPanel(state, now), state, now);
    };
    for (const auto& [openedAt, expected] :
        std::vector<std::pair<std::string, std::optional<double>>>{{"2027-01-15T07:59:50Z", 50},
            {"2027-01-15T06:30:00Z", 1800}, {"2027-01-13T20:00:00Z", 43'200}, {"some day", std::nullopt}}) {
        auto state = ready({card("a")});
        state.cards[0].openedAt = openedAt;
        const auto wait = changesIn(state);
        ASSERT_EQ(wait.has_value(), expected.has_value()) << openedAt;
        if (!wait)
            continue;
        EXPECT_NEAR(*wait, *expected, 1e-3) << openedAt;
        // Not a moment too late: just before it the words are the same, just after it they differ.
        EXPECT_EQ(menuPanel(state, now + seconds(*wait - 0.01)), menuPanel(state, now)) << openedAt;
        EXPECT_NE(menuPanel(state, now + seconds(*wait + 0.01)), menuPanel(state, now)) << openedAt;
    }

    auto state = ready({card("a")});
    state.later["a"] = now + seconds(1800);
    EXPECT_TRUE(shown(state).empty());
    EXPECT_EQ(shown(state, now + seconds(changesIn(state).value())), Words{"a"});

    state.holds["a"] = holdOf(card("a"), 2);
    EXPECT_EQ(changesIn(state), 0.25);
}

TEST(InboxList, everyOpenCardHasItsPlaceTheSnoozedOnesLast) {
    auto closed = card("closed");
    closed.state = "closed";
    auto state = ready({card("note", "receipt"), card("a"), closed, card("snoozed"), card("back"), card("b"),
        card("risky", "question", "high")});
    state.later = {{"snoozed", now + seconds(60)}, {"back", now - seconds(1)}};
    for (const auto* id : {"gone", "b"})
        state.holds[id] = holdOf(card(id), 1);
    const auto rows = inboxList(state, now).rows;
    EXPECT_EQ(ids(rows), (Words{"gone", "risky", "a", "back", "b", "note", "snoozed"}));
    EXPECT_TRUE(std::holds_alternative<HoldRow>(rows.at(4)))
        << "an answer on its way stays where its card was";
    EXPECT_EQ(std::get<PanelCard>(rows.back()).later, now + seconds(60));
    EXPECT_EQ(std::get<PanelCard>(rows.back()).actions.at(0).kind, PanelAction::Kind::wake);
    EXPECT_EQ(inboxList(state, now).snoozed, 1U);
    EXPECT_EQ(ids(inboxList(state, now, "RISK").rows), (Words{"gone", "b", "risky"}))
        << "an answer on its way is never hidden";
}

TEST(InboxList, theScopeHidesWhatBelongsElsewhereAndSaysHowMuch) {
    auto state = ready({card("mine"), card("other"), card("none")});
    state.cards[0].topic = "t1";
    state.cards[1].topic = "t2";
    state.topics["t1"].scope = "family";
    state.topics["t2"].scope = "tolvena";
    state.scope = ScopeFilter::family;
    EXPECT_EQ(ids(inboxList(state, now).rows), Words{"mine"});
    EXPECT_EQ(inboxList(state, now).elsewhere, 2);
}

} // namespace
} // namespace kelvadrome::test
