#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

Card question(const std::string& risk = "low") {
    return World::card("a", "question", risk);
}

Card batch(std::optional<std::string> secondDefault, const std::string& risk = "low") {
    auto card = World::card("a", "batch", risk);
    card.rows = {{"q1", "One?", "Yes", "idle"}, {"q2", "Two?", secondDefault, "idle"}};
    return card;
}

class PanelActions : public testing::Test, protected World {
protected:
    void SetUp() override { start(); }

    const PanelHold* hold() const {
        const auto found = state().holds.find("a");
        return found == state().holds.end() ? nullptr : &found->second;
    }
    void answerAndWait() {
        model->answer(question(), "Yes");
        loop.until([&] { return clock->sleepers() == 2; }, "the answer's first pause");
    }
};

TEST_F(PanelActions, anAnswerGoesOutAtOnceShowsAsSentAndLeaves) {
    model->answer(question(), "Yes");
    ASSERT_TRUE(hold());
    EXPECT_EQ(*hold(), (PanelHold{question(), "Yes", clock->now() + seconds(2.0), 2.0, false}));
    EXPECT_EQ(panelCards(state(), clock->now()).size(), 1U) << "the row lives without a card of the daemon's";
    loop.until([&] { return clock->sleepers() == 2; }, "the first pause");
    ASSERT_EQ(page->posts.size(), 1U);
    EXPECT_EQ(page->posts[0].url, FakePage::origin() + "/v1/cards/answer");
    EXPECT_EQ(page->posts[0].body, R"({"card_id":"a","version":3,"answer":"Yes"})");

    EXPECT_NEAR(clock->untilNext(), 2.3, 1e-6);
    const auto refreshes = asked("/v1/cards/list");
    clock->advance(2.29);
    loop.drain();
    EXPECT_FALSE(hold()->committed);
    clock->advance(0.02);
    loop.until([&] { return asked("/v1/cards/list") == refreshes + 1 && clock->sleepers() == 2; },
        "the second pause");
    EXPECT_TRUE(hold()->committed);
    EXPECT_NEAR(clock->untilNext(), 2.5, 1e-6);
    clock->advance(2.5);
    loop.until([&] { return !hold(); }, "the row to leave");
}

TEST_F(PanelActions, aReplyAfterTheWindowLeavesAShortPause) {
    page->holdPosts = true;
    model->answer(question(), "Yes");
    loop.until([&] { return page->posts.size() == 1; }, "the answer to go out");
    clock->advance(3.0);
    page->release();
    loop.until([&] { return clock->sleepers() == 2; }, "the first pause");
    EXPECT_NEAR(clock->untilNext(), 0.3, 1e-6);
}

TEST_F(PanelActions, undoInTheFirstPauseTakesTheRowAwayForGood) {
    answerAndWait();
    const auto refreshes = asked("/v1/cards/list") + 1; // one after the undo
    model->undo(question());
    loop.until([&] { return !hold(); }, "the undo");
    EXPECT_EQ(page->posts.back().url, FakePage::origin() + "/v1/page/cancel");
    EXPECT_EQ(page->posts.back().body, R"({"card_id":"a"})");
    loop.until([&] { return asked("/v1/cards/list") == refreshes; }, "the refresh after it");
    clock->advance(2.3);
    refresh();
    EXPECT_FALSE(hold());
    EXPECT_EQ(asked("/v1/cards/list"), refreshes + 1) << "only this one, as nothing was committed";
    EXPECT_EQ(clock->sleepers(), 1U);
}

TEST_F(PanelActions, aRefusedUndoSaysSoAndTheRowRunsOut) {
    page->replies["/v1/page/cancel"] = FakePage::failure("conflict", "It was sent.");
    answerAndWait();
    const auto refreshes = asked("/v1/cards/list");
    model->undo(question());
    loop.until([&] { return asked("/v1/cards/list") == refreshes + 1; }, "the refresh");
    EXPECT_EQ(state().panelError, "Undo failed: It was sent.");
    ASSERT_TRUE(hold());
    daemon->on("/v1/cards/list", FakeReply::failure("internal", "no")); // a failed refresh keeps no row
    clock->advance(2.3);
    loop.until([&] { return hold()->committed && clock->sleepers() == 2; }, "the row to show as sent");
    clock->advance(2.5);
    loop.until([&] { return !hold(); }, "the row to leave");
    EXPECT_EQ(state().panelError, "Undo failed: It was sent.");
}

TEST_F(PanelActions, aRefusedAnswerTakesTheRowAwayAndSaysWhy) {
    page->replies["/v1/cards/answer"] = FakePage::failure("stale", "This card has changed.");
    model->answer(question(), "Yes");
    loop.until([&] { return !hold(); }, "the refusal");
    EXPECT_EQ(state().panelError, "This card has changed.");
    page->replies.clear();
    model->answer(question(), "Yes");
    EXPECT_EQ(state().panelError, std::nullopt) << "the next press clears it";
}

TEST_F(PanelActions, aHighRiskCardOpensThePageInsteadOfBeingAnswered) {
    model->answer(question("high"), "Yes");
    model->acceptDefaults(batch("No", "high"));
    EXPECT_EQ(web->calls.countOf("navigate / all a"), 2U);
    loop.drain();
    EXPECT_TRUE(state().holds.empty());
    EXPECT_TRUE(page->posts.empty());
}

TEST_F(PanelActions, aBatchIsAcceptedOnlyWhenEveryQuestionHasADefault) {
    model->acceptDefaults(batch(std::nullopt));
    EXPECT_TRUE(state().holds.empty());
    model->acceptDefaults(batch("No"));
    EXPECT_EQ(hold()->label, "Accept 2 defaults");
    loop.until([&] { return page->posts.size() == 1; }, "the answer");
    EXPECT_TRUE(page->posts[0].body->contains(R"("answer":{"q1":"Yes","q2":"No"})")) << *page->posts[0].body;
}

TEST_F(PanelActions, aBatchWithOnesOwnAnswersSaysWhatGoesOut) {
    auto card = batch(std::nullopt);
    model->answerBatch(card, {{"q1", "C++"}, {"q2", "ours"}});
    EXPECT_EQ(hold()->label, "2 answers");
    card = batch("ours", "high");
    card.id = "2";
    model->answerBatch(card, {{"q1", "C++"}, {"q2", "ours"}});
    EXPECT_FALSE(state().holds.contains("2")) << "a high risk is left to the page";
    card.risk = "low";
    model->answerBatch(card, {{"q1", "Yes"}, {"q2", "ours"}});
    EXPECT_EQ(state().holds.at("2").label, "Accept 2 defaults");
}

} // namespace
} // namespace kelvadrome::test
