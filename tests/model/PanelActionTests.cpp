#include "Kelvadrome/model/ListRows.h"
#include "Kelvadrome/model/MenuPanel.h"

#include "tests/model/World.h"

#include <fmt/chrono.h>

namespace kelvadrome::test {
namespace {

Card question(const std::string& risk = "low") {
    return card("a", "question", risk);
}

Card batch(std::optional<std::string> secondDefault, const std::string& risk = "low") {
    auto asked = card("a", "batch", risk);
    asked.rows = {{"q1", "One?", "Yes", "idle"}, {"q2", "Two?", secondDefault, "idle"}};
    return asked;
}

constexpr const char* armed = R"(,"state":"armed")";

std::string cardWith(const std::string& more) {
    return World::cardJSON("a", "question", "low", more);
}

class PanelActions : public testing::Test, protected World {
protected:
    void SetUp() override { start(); }

    const PanelHold* hold() const {
        const auto found = state().holds.find("a");
        return found == state().holds.end() ? nullptr : &found->second;
    }
    PanelCard row() const { return std::get<PanelCard>(menuPanel(state(), clock->now()).rows.at(0)); }
    PanelCard row0() const {
        return std::get<PanelCard>(cardRows(state(), state().cards, clock->now()).at(0));
    }
    void loseTheReply() {
        page->loseReplies = true;
        model->answer(question(), "Yes");
        until([&] { return !hold() && clock->sleepers() == 2; }, "the first look after the lost reply");
    }
    void answerAndWait() {
        model->answer(question(), "Yes");
        untilPause();
    }
    void untilPause() {
        until([&] { return clock->sleepers() == 2; }, "the answer's next pause");
    }
    void untilGone() {
        until([&] { return !hold(); }, "the row to leave");
    }
};

TEST_F(PanelActions, anAnswerGoesOutAtOnceShowsAsSentAndLeaves) {
    model->answer(question(), "Yes");
    ASSERT_TRUE(hold());
    EXPECT_EQ(*hold(), (PanelHold{question(), "Yes", clock->now() + seconds(2.0), 2.0, false}));
    EXPECT_EQ(panelCards(state(), clock->now()).size(), 1U) << "the row lives without a card of the daemon's";
    untilPause();
    ASSERT_EQ(page->posts.size(), 1U);
    EXPECT_EQ(page->posts[0].url, FakePage::origin() + "/v1/cards/answer");
    EXPECT_EQ(page->posts[0].body, R"({"card_id":"a","version":3,"answer":"Yes"})");

    EXPECT_NEAR(clock->untilNext(), 2.3, 1e-6);
    const auto refreshes = asked("/v1/cards/list");
    clock->advance(2.29);
    loop.drain();
    EXPECT_FALSE(hold()->committed);
    clock->advance(0.02);
    until([&] { return asked("/v1/cards/list") == refreshes + 1 && clock->sleepers() == 2; },
        "the second pause");
    EXPECT_TRUE(hold()->committed);
    EXPECT_NEAR(clock->untilNext(), 2.5, 1e-6);
    clock->advance(2.5);
    untilGone();
}

TEST_F(PanelActions, aClockThatIsSetBackHoldsTheRowNoLonger) {
    page->holdPosts = true;
    model->answer(question(), "Yes");
    until([&] { return page->posts.size() == 1; }, "the answer to go out");
    clock->shiftWall(-3600);
    page->release();
    untilPause();
    EXPECT_NEAR(clock->untilNext(), 2.3, 1e-6);
}

TEST_F(PanelActions, aReplyAfterTheWindowLeavesAShortPause) {
    page->holdPosts = true;
    model->answer(question(), "Yes");
    until([&] { return page->posts.size() == 1; }, "the answer to go out");
    clock->advance(3);
    page->release();
    untilPause();
    EXPECT_NEAR(clock->untilNext(), 0.3, 1e-6);
}

TEST_F(PanelActions, undoInTheFirstPauseTakesTheRowAwayForGood) {
    answerAndWait();
    const auto refreshes = asked("/v1/cards/list") + 1; // one after the undo
    model->undo(question());
    untilGone();
    EXPECT_EQ(page->posts.back().url, FakePage::origin() + "/v1/page/cancel");
    EXPECT_EQ(page->posts.back().body, R"({"card_id":"a"})");
    until([&] { return asked("/v1/cards/list") == refreshes; }, "the refresh after it");
    clock->advance(2.3);
    refresh();
    EXPECT_FALSE(hold());
    EXPECT_EQ(asked("/v1/cards/list"), refreshes + 1) << "only this one, as nothing was committed";
    EXPECT_EQ(clock->sleepers(), 1U);
}

TEST_F(PanelActions, anUndoNeverOvertakesItsAnswer) {
    for (const bool lost : {false, true}) {
        SCOPED_TRACE(lost ? "the answer's reply is lost" : "the answer's reply comes");
        page->posts.clear();
        page->holdPosts = true;
        model->answer(question(), "Yes");
        until([&] { return page->posts.size() == 1; }, "the answer to go out");
        model->undo(question());
        loop.drain();
        EXPECT_EQ(page->posts.size(), 1U);
        page->loseReplies = lost;
        page->release();
        until([&] { return page->posts.size() == 2; }, "the undo after it");
        EXPECT_EQ(page->posts[1].url, FakePage::origin() + "/v1/page/cancel");
        untilGone();
    }
}

TEST_F(PanelActions, aRefusedUndoSaysSoAndTheRowRunsOut) {
    page->replies["/v1/page/cancel"] = FakePage::failure("conflict", "It was sent.");
    answerAndWait();
    const auto refreshes = asked("/v1/cards/list");
    model->undo(question());
    until([&] { return asked("/v1/cards/list") == refreshes + 1; }, "the refresh");
    EXPECT_EQ(state().panelError, "Undo failed: It was sent.");
    ASSERT_TRUE(hold());
    refuse("/v1/cards/list"); // a failed refresh keeps no row
    clock->advance(2.3);
    until([&] { return hold()->committed && clock->sleepers() == 2; }, "the row to show as sent");
    clock->advance(2.5);
    untilGone();
    EXPECT_EQ(state().panelError, "Undo failed: It was sent.");
}

TEST_F(PanelActions, aRefusedAnswerTakesTheRowAwayAndSaysWhyOnItsCardSnoozedOrNot) {
    readCards({cardJSON("a")});
    model->snooze(question());
    page->replies["/v1/cards/answer"] = FakePage::failure("stale", "This card has changed.");
    model->answer(question(), "Yes");
    untilGone();
    EXPECT_EQ(state().panelError, "This card has changed.");
    EXPECT_EQ(row().refused, "This card has changed.") << "in sight, with what became of it";
    page->replies.clear();
    model->answer(question(), "Yes");
    EXPECT_EQ(state().panelError, std::nullopt) << "the next press clears it";
}

TEST_F(PanelActions, aLostReplyStandsOnItsCardUntilAReadSaysThatItWasTaken) {
    readCards({cardJSON("a")});
    loseTheReply();
    EXPECT_EQ(row().way, "“Yes”: No answer from the daemon yet: it may or may not have been taken.");
    EXPECT_TRUE(row().actions.empty()) << "nothing is pressed twice while nobody knows";
    EXPECT_EQ(state().panelError, "The reply was lost.");
    EXPECT_EQ(shownError(state()), std::nullopt) << "the row says it in words";

    refuse("/v1/cards/list");
    pid = 200; // another daemon, which can't tell yet
    turnUntil([&] { return state().health->pid == 200; }, "the daemon to be back");
    EXPECT_FALSE(row().way.empty());

    readCards({cardWith(armed)});
    until([&] { return state().pressed.empty(); }, "a look that tells");
    EXPECT_EQ(state().panelError, std::nullopt) << "there is no doubt any more";
    EXPECT_EQ(row().way, "An answer is on its way to Agent.");
}

TEST_F(PanelActions, aLostAnswerWhoseCardIsGoneIsSaidToBeSentOrNotWanted) {
    for (const auto& [end, sent] :
        std::vector<std::pair<std::string, bool>>{{R"("outcome":"answered","answer":"Yes")", true},
            {R"("outcome":"withdrawn")", false}, {R"("outcome":"answered","answer":"No")", false}}) {
        reply("/v1/cards/detail", R"({"card":{)" + end + "}}");
        readCards({cardJSON("a")});
        loseTheReply();
        readCards({});
        turnUntil(
            [&] {
                return hold() || state().panelError == "“Yes” was not delivered: “a” is not asked any more.";
            },
            "its end to be told", 5.0);
        EXPECT_EQ(hold() && hold()->committed, sent) << end;
        turnUntil([&] { return !hold() && clock->sleepers() == 1; }, "the row to leave", 5.0);
    }
}

TEST_F(PanelActions, anAnswerThatWasNotTakenCanBePressedAgainAfterASecondLook) {
    readCards({cardJSON("a")});
    loseTheReply();
    refresh(); // begun at the same moment as the first look: the press may wait behind it
    EXPECT_FALSE(row().takesAnswer());
    turnUntil([&] { return row().takesAnswer(); }, "the second look", 5.0);
    EXPECT_EQ(row().refused, "the daemon did not take it");
    page->loseReplies = false;
    model->answer(row().card, "Yes");
    until([&] { return page->posts.size() == 2; }, "the second press");
}

TEST_F(PanelActions, anAnswerThatIsLongOnItsWaySaysSoAndComesBackWhenItWasRefused) {
    readCards({cardJSON("a")});
    answerAndWait();
    cards({cardWith(armed)});
    turnUntil([&] { return !hold(); }, "the row to leave", 2.5);
    EXPECT_EQ(row().way, "“Yes” is on its way to Agent.");
    readCards({cardWith(R"(,"refs":{"last_refusal":"the pane is closed"})")});
    EXPECT_EQ(row().refused, "the pane is closed");
    EXPECT_TRUE(row().takesAnswer());
}

TEST_F(PanelActions, aReviewTakesThePlaceOfTheNativeListUntilItsCardIsOver) {
    readCards({cardJSON("a", "question", "high"), cardJSON("b")});
    model->setNativeInbox(true);
    model->answer(question("high"), "Yes");
    EXPECT_EQ(state().reviewed, "a");
    refresh();
    EXPECT_EQ(state().reviewed, "a");
    readCards({cardJSON("b")});
    EXPECT_EQ(state().reviewed, std::nullopt);
    model->openFirstNeedingYou();
    EXPECT_EQ(state().reviewed, std::nullopt) << "the list answers it";
}

TEST_F(PanelActions, aHighRiskCardOpensThePageInsteadOfBeingAnswered) {
    model->answer(question("high"), "Yes");
    model->acceptDefaults(batch("No", "high"));
    model->answerBatch(batch("ours", "high"), {{"q1", "C++"}, {"q2", "ours"}});
    EXPECT_EQ(web->calls.countOf("navigate / all a"), 3U);
    loop.drain();
    EXPECT_TRUE(state().holds.empty() && page->posts.empty());
}

TEST_F(PanelActions, aHighRiskIsAnsweredWithoutThePageOnlyAfterItsReviewIsConfirmed) {
    page->replies["/v1/page/review"] = FakePage::data(R"({"review":"T","answer":"Yes","hold_s":5})");
    model->review(question("high"), "Yes");
    until([&] { return state().secondLook.has_value(); }, "the second look");
    model->giveUpReview();
    model->confirmReview();
    EXPECT_EQ(page->posts.size(), 1U) << "nothing to confirm any more";
    model->review(question("high"), "Yes");
    until([&] { return state().secondLook.has_value(); }, "the second look once more");
    model->confirmReview();
    EXPECT_EQ(hold()->duration, 5);
    until([&] { return page->posts.size() == 3; }, "the answer");
    EXPECT_EQ(page->posts[2].body, R"({"card_id":"a","version":3,"answer":"Yes","review":"T"})");
}

TEST_F(PanelActions, whatCannotBeDismissedSaysWhyAndASnoozedCardIsWoken) {
    readCards({cardJSON("a")});
    page->replies["/v1/page/dismiss"] = FakePage::failure("stale", "It changed.");
    model->dismiss(question());
    until([&] { return state().panelError == "It was not dismissed: It changed."; }, "the reason");
    model->snooze(question());
    EXPECT_EQ(snoozedCount(state(), clock->now()), 1);
    model->wake(question());
    EXPECT_EQ(snoozedCount(state(), clock->now()), 0);
}

TEST_F(PanelActions, aSnoozeIsTheDaemonsOnceItTellsOfItAndOursUntilThen) {
    const auto snoozed = [&] { return snoozedCount(state(), clock->now()) == 1; };
    const auto saidLast = [&](const std::string& path) {
        until([&] { return !page->posts.empty() && page->posts.back().url == FakePage::origin() + path; },
            path);
    };
    readCards({cardJSON("a")});
    page->replies["/v1/page/snooze"] = FakePage::failure("not_found", "No such call.");
    model->snooze(question());
    saidLast("/v1/page/snooze");
    EXPECT_EQ(page->posts.back().body, R"({"card_id":"a","minutes":30})");
    refresh();
    EXPECT_TRUE(snoozed()) << "the daemon knows no snoozing";
    EXPECT_EQ(state().panelError, std::nullopt);

    const auto told = [&](double later) {
        const auto at = std::chrono::system_clock::to_time_t(
            std::chrono::floor<std::chrono::seconds>(clock->now() + seconds(later)));
        readCards({cardWith(fmt::format(R"(,"snoozed_until":"{:%FT%TZ}")", fmt::gmtime(at)))});
    };
    told(600);
    EXPECT_TRUE(snoozed() && row0().later && row0().snoozed.starts_with("Snoozed until "));
    readCards({cardJSON("a")});
    EXPECT_FALSE(snoozed()) << "woken on the page";
    told(8 * 86'400);
    EXPECT_FALSE(snoozed()) << "the clock was set back";
    told(600);
    model->wake(question());
    EXPECT_FALSE(snoozed()) << "at once";
    saidLast("/v1/page/wake");

    readCards({cardJSON("a")});
    page->replies["/v1/page/snooze"] = FakePage::failure("conflict", "This question is over.");
    model->snooze(question());
    until([&] { return state().panelError == "It was not snoozed: This question is over."; }, "the reason");
    EXPECT_FALSE(snoozed());
}

TEST_F(PanelActions, aPressOnAnAgentLeadsToItsCardOrItsTerminal) {
    reply("/v1/agents/status",
        R"({"sessions":[{"agent":"claude","session_id":"1","status":"busy","callsign":"Ada","host":"tmux","tty":"pts/3","folder":"/w/shop/","pane":"%4"},
            {"agent":"claude","session_id":"2","status":"waiting_me","callsign":"Bruno"}]})");
    readCards({cardWith(R"(,"agent":"claude","session_id":"2")")});
    const auto lines = agentLines(state());
    EXPECT_EQ(sentenceOf(lines.at(0)), "Claude Code, Ada · shop · tmux %4: working");
    EXPECT_EQ(lines.at(1).waiting, 1);
    model->openAgent("claude:2");
    EXPECT_EQ(web->calls.last("navigate"), "navigate / all a");
    EXPECT_EQ(state().cardToShow, "a");
    page->replies["/v1/page/focus"] = FakePage::data(R"({"outcome":"refused","reason":"The pane is gone."})");
    model->openAgent("claude:1");
    until([&] { return state().notice == "The pane is gone."; }, "the reason");
    EXPECT_EQ(page->posts.back().body, R"({"agent":"claude","session_id":"1"})");
}

TEST_F(PanelActions, receiptsAreFoundByTheirWordsTopicAndDay) {
    reply("/v1/receipts/list",
        R"({"receipts":[{"event_id":"2","action":"x","line":"Yes for Codex","topic":"T","ts":"2027-01-15T08:00:00Z","card_id":"a"},
            {"event_id":"1","action":"x","line":"No","ts":"2027-01-12T08:00:00Z"}]})");
    refresh();
    const auto found = [&](const char* words) {
        std::string ids;
        for (const auto& row : receiptRows(state(), words, clock->now()))
            ids += row.id;
        return ids;
    };
    EXPECT_EQ(found(""), "21");
    EXPECT_EQ(found("codex today"), "2");
    EXPECT_EQ(found("no codex"), "");
}

TEST_F(PanelActions, aBatchSaysWhatGoesOutAndHasDefaultsOnlyWhenEveryQuestionHasOne) {
    model->acceptDefaults(batch(std::nullopt));
    EXPECT_TRUE(state().holds.empty());
    for (const auto& [second, label] : {std::pair("No", "Accept 2 defaults"), {"ours", "2 answers"}}) {
        page->posts.clear();
        model->answerBatch(batch("No"), {{"q1", "Yes"}, {"q2", second}});
        EXPECT_EQ(hold()->label, label);
        until([&] { return page->posts.size() == 1; }, "the answer");
        EXPECT_TRUE(
            page->posts[0].body->contains(fmt::format(R"("answer":{{"q1":"Yes","q2":"{}"}})", second)))
            << *page->posts[0].body;
    }
}

} // namespace
} // namespace kelvadrome::test
