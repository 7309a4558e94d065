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
    openPanel("1 needs you");
    pressByKeys("PostgreSQL. Suggested. Holds 2 s so you can undo.");
    until([&] { return reader->find("Sending in a moment. Undo.") || reader->findPart("Sent to"); },
        "the answer to show as pressed");
    seeInPane("menu", "You chose: PostgreSQL");
    see("New questions land here first.");
    closePanel();

    // A free answer, typed into the panel that the tray opened.
    startAgent("text");
    openPanelByTray("1 needs you");
    tabTo("Read and answer");
    pressUntilSeen("space", "Answer to: What should the new command be called?");
    tabTo("Answer to: What should the new command be called?");
    type("kd look, 8081");
    keys("Return");
    seeInPane("text", "You chose: kd look, 8081");
    closePanel();

    // All defaults of a batch.
    startAgent("batch");
    openPanel("1 needs you");
    pressByKeys("Accept 3 defaults");
    seeInPane("batch", "You chose: lang: Rust");
}

TEST_F(DesktopStage, aHighRiskIsToldReviewedOnThePageAndTypedOnlyThen) {
    finishSetupBeforehand();
    startApp();
    waitUntilUp();

    // The panel offers no answer to it, only the way to the page.
    startAgent("stop");
    until([&] { return !notifications->notified.empty(); }, "the notification");
    EXPECT_THAT(notifications->notified, SizeIs(1));
    EXPECT_THAT(notifications->notified[0], HasSubstr("'kelvadrome'"));
    for (const auto* secret : {"invoice", "12.50", "Billing", "Claude"})
        EXPECT_THAT(notifications->notified[0], Not(HasSubstr(secret)));
    openPanel("Review in kelvadrome");
    EXPECT_FALSE(reader->find("Approve"));
    EXPECT_FALSE(reader->find("Read and answer"));
    closePanel();

    // A press on the notification leads to the card on the page, where keys go.
    close("kelvadrome");
    notifications->invoke(1, "kelvadrome.open");
    waitActive("kelvadrome");
    approveOnPage();
    seeInPane("stop", "You chose: Approve");
    until([&] { return cards().empty(); }, "the card to close");
}

} // namespace
} // namespace kelvadrome::test
