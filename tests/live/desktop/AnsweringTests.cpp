#include "tests/live/desktop/DesktopStage.h"

#include <gmock/gmock.h>

namespace kelvadrome::test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

TEST_F(DesktopStage, questionsAreAnsweredByKeysAloneAndTypedIntoTheirPanes) {
    finishSetupBeforehand();
    startApp();
    waitUntilUp();

    // The suggested answer, from the panel.
    startAgent("menu");
    keys("ctrl+p");
    see("1 needs you");
    tabTo("PostgreSQL. Suggested. Holds 2 s so you can undo.");
    keys("Return");
    see("Sending in a moment. Undo.");
    seeInPane("menu", "You chose: PostgreSQL");
    see("New questions land here first.");
    keys("Escape");
    waitActive("kelvadrome");

    // A free answer, typed into the panel that the tray opened.
    startAgent("text");
    activateTrayItem();
    see("1 needs you");
    tabTo("Read and answer");
    keys("space");
    tabTo("Answer to: What should the new command be called?");
    type("kd look, 8081");
    keys("Return");
    seeInPane("text", "You chose: kd look, 8081");
    keys("Escape");
    waitActive("kelvadrome");

    // All defaults of a batch.
    startAgent("batch");
    keys("ctrl+p");
    see("1 needs you");
    tabTo("Accept 3 defaults");
    keys("Return");
    seeInPane("batch", "You chose: lang: Rust");
    keys("Escape");
}

TEST_F(DesktopStage, aHighRiskIsToldReviewedOnThePageAndTypedOnlyThen) {
    finishSetupBeforehand();
    startApp();
    waitUntilUp();

    // The panel offers no answer to it, only the way to the page.
    const auto card = startAgent("stop");
    until([&] { return !notifications->notified.empty(); }, "the notification");
    EXPECT_THAT(notifications->notified, SizeIs(1));
    EXPECT_THAT(notifications->notified[0], HasSubstr("'kelvadrome'"));
    for (const auto* secret : {"invoice", "12.50", "Billing", "Claude"})
        EXPECT_THAT(notifications->notified[0], Not(HasSubstr(secret)));
    keys("ctrl+p");
    see("Review in kelvadrome");
    EXPECT_FALSE(reader->find("Approve"));
    EXPECT_FALSE(reader->find("Read and answer"));
    keys("Escape");

    // A press on the notification leads to the card on the page, where keys go.
    waitActive("kelvadrome");
    close("kelvadrome");
    notifications->invoke(1, "kelvadrome.open");
    waitActive("kelvadrome");
    approveOnPage();
    seeInPane("stop", "You chose: Approve");
    until([&] { return cards().empty(); }, "the card to close");
}

} // namespace
} // namespace kelvadrome::test
