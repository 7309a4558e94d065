#include "Kelvadrome/terminal/panel/PanelKeys.h"
#include "Kelvadrome/terminal/panel/TerminalKeys.h"

#include "tests/terminal/PanelWorld.h"

using namespace kelvadrome;
using namespace kelvadrome::test;
using Mode = PanelFocus::Mode;

TEST(PanelInput, picksARowAndAnswersIt) {
    PanelWorld at({question("a"), question("b"), question("c")});
    EXPECT_EQ(at.selected(), "a");
    at.expect({{"a", "answer a Yes"}, {"j2", "answer b No"},
        {"<down><down>1", "answer c Yes"}, // there is no further row
        {"<home>1", "answer a Yes"}, {"<end>v", "review c"}, {"3", ""}, {"0", ""}, {"d", ""}});
}

TEST(PanelInput, numbersAboveNineTakeTwoDigits) {
    std::vector<std::string> options;
    for (int i = 1; i <= 12; ++i)
        options.push_back("option " + std::to_string(i));
    PanelWorld at({question("a", options)});
    at.expect({{"2", "answer a option 2"}, // nothing from 20 up
        {"1", ""}, {"2", "answer a option 12"}, {"1<enter>", "answer a option 1"},
        {"19", ""}, // 19 is none, and it isn't read as 9
        {"2", "answer a option 2"}, {"1<esc>2", "answer a option 2"}});
}

TEST(PanelInput, aCardThatTakesNoAnswerTakesNoneButCanBePutAway) {
    auto away = question("away"), never = question("never"), left = question("left");
    away.state = "held";
    never.answerable = false;
    left.state = "gone";
    PanelWorld at({away, never, left});
    at.expectRefused("1adtzx");
    at.expect({{"u", "undo away"}, {"j", ""}});
    at.expectRefused("1at");
    at.expect({{"v", "review never"}, {"z", "snooze never"}});
    at.pass(1);
    at.expect({{"<end>xx", "dismiss left"}});

    PanelWorld risky({highRisk()});
    risky.expectRefused("a1dt");
    risky.expect({{"v", "review stop"}, {"x", ""}, {"j", ""}, {"x", ""}, {"x", "dismiss stop"}});
}

TEST(PanelInput, whatIsPutAwayLetsTheNextRowStandInItsPlace) {
    PanelWorld at({question("a"), question("b"), question("c")});
    at.expect({{"jz", "snooze b"}});
    EXPECT_EQ(at.selected(), "c");
    at.expectRefused("1"); // it came there by itself
    at.state.later["b"] = at.time + seconds(1800);
    const auto snoozed = at.text();
    EXPECT_TRUE(snoozed.contains("1 snoozed") && snoozed.contains("Snoozed\n")) << snoozed;
    at.pass(1);
    at.expect({{"1", "answer c Yes"}, {"<end>z", "wake b"}});
}

TEST(PanelInput, aRowThatChangedUnderTheFingerTakesNoAnswerForAMoment) {
    PanelWorld at({question("a"), question("b")});
    at.state.cards.erase(at.state.cards.begin());
    at.draw();
    EXPECT_EQ(at.selected(), "b");
    at.expectRefused("1azxt");
    at.expect({{"1", "answer b Yes"}});

    at.state.cards[0].version = 4;
    at.state.cards[0].options = {"No", "Yes"};
    at.draw();
    at.expect({{"1", ""}});
    at.pass(PanelInput::settling + 0.01);
    at.expect({{"1", "answer b as changed No"}});

    // Rows that move around the selected one don't matter, nor does a row that the user picks.
    at.state.cards.insert(at.state.cards.begin(), question("new"));
    at.draw();
    at.expect({{"1", "answer b as changed No"}, {"<up>1", "answer new Yes"}});

    // Nor does it take one when it takes answers again.
    at.state.pressed["new"] = {
        .card = at.state.cards[0], .label = "Yes", .known = PressedAnswer::Known::unclear};
    at.draw();
    at.expectRefused("1t");
    at.state.pressed.clear();
    at.draw();
    at.expectRefused("1");
    at.pass(1);
    at.expect({{"1", "answer new Yes"}});
}

TEST(PanelInput, undoFindsTheAnswerOnItsWay) {
    PanelWorld at({question("a"), question("b")});
    at.expect({{"u", ""}});
    at.hold("a");
    at.expect({{"1", ""}, {"<down>u", "undo a"}}); // it is answered already
    at.hold("b");
    at.expect({{"u", "undo b"}});
    at.hold("b", true);
    at.expect({{"u", "undo a"}});
    at.hold("a", true);
    at.expect({{"u", ""}});
}

TEST(PanelInput, whatIsTypedIsWhatIsSent) {
    PanelWorld at({question("a"), question("b")});
    at.expectTyped({{"t", ""}, {"<enter>", ""}, {"quit? ", "quit? "}});
    at.input.press({Key::Kind::text, "日本"}, at.time);
    at.expect({{"<back><enter>", "answer a quit? 日"}});
    EXPECT_EQ(at.focus().mode, Mode::rows);

    at.expectTyped({{"t", "quit? 日"}}); // should the answer come back refused, its text is still there
    at.expect({{"<^c>", "quit"}});
    at.expectTyped({{"<^u>x", "x"}, {"<esc>t", "x"}, {"<esc>jt", ""}});
}

TEST(PanelInput, wordsThatNothingTakesAreNoCommands) {
    PanelWorld sent({question("a"), question("b")});
    sent.hold("a");
    PanelWorld agents({question("a")}), none(std::vector<Card>{}), over({question("a")});
    agents.press("g");
    over.reads.card = CardRecord{.id = "z", .title = "Over"};
    over.draw();
    for (auto* const at : {&sent, &agents, &none, &over}) {
        at->press("t");
        at->reads.card.reset();
        EXPECT_TRUE(at->focus().hint.contains("until you pause.")) << at->text();
        for (const std::string keys : {"1 ad", "zux", "voq"}) { // longer than one pause in all
            at->pass(PanelInput::pause - 0.1);
            EXPECT_EQ(at->press(keys), "") << keys;
        }
        EXPECT_EQ(at->focus().mode, Mode::rows);
        at->pass(PanelInput::pause);
        at->expect({{"q", "quit"}});
    }
    sent.expect({{"tq", ""}, {"<down>1", "answer b Yes"}}); // another kind of key ends it at once
}

TEST(PanelInput, aPasteIsTextAndNeverASetOfCommands) {
    PanelWorld at({question("a")});
    at.expect({{"<paste>aq1t", ""}, {"<^c>", ""}, {"<pasted>", ""}});
    EXPECT_EQ(at.focus().mode, Mode::rows);
    at.expect(
        {{"t<paste>two<enter>", ""}, {"<esc><^c>", ""}, {"lines<pasted><enter>", "answer a two lines"}});
}

TEST(PanelInput, anAnswerForAChangedQuestionIsKeptBack) {
    PanelWorld at({question("a"), question("b")});
    at.press("thello");
    // A daemon that is away says nothing of the question.
    at.state.connection = Connection::starting();
    at.draw();
    at.expectTyped({{"<enter>", "hello"}});
    EXPECT_FALSE(at.focus().typingGone);
    at.state.connection = Connection::ready();
    at.state.cards.erase(at.state.cards.begin());
    at.draw();
    EXPECT_TRUE(at.focus().typingGone);
    at.expectTyped({{"<enter>", "hello"}});
}

TEST(PanelInput, alertsAndHelpTakeTheKeys) {
    PanelWorld at({question("a")});
    at.press("?");
    EXPECT_EQ(at.focus().mode, Mode::help);
    at.expect({{"a", ""}});
    EXPECT_EQ(at.focus().mode, Mode::rows);

    at.press("tabc");
    at.input.setAlert(true);
    at.expect({{"a", ""}, {"<enter>", "acknowledge"}});
    at.input.setAlert(true, true);
    at.expect({{"y", ""}, {"<enter>", "refuse"}, {"<esc>", "refuse"}, {"q", "acknowledge"}});
    at.input.setAlert(false);
    at.expectTyped({{"d", "abcd"}});
}

TEST(PanelInput, aHitOfTheBarIsGoneTo) {
    PanelWorld at({question("a"), question("b")});
    at.bar.hits = {{"topic", "t/9", {}, "Databases", "2 open questions"},
        {"question", "b", {}, "Deploy?", ""}, {"decision", "old", {}, "Which db?", "“Postgres”"},
        {"decision", "receipt-7", {}, "Typed", ""}};
    at.expect({{"/db", "words db"}, {"<up>", "up"}});
    const auto text = at.text();
    EXPECT_TRUE(text.contains("▌ Typed") && text.contains("Which db?") && text.contains("4 of 4")) << text;
    at.expect({{"<enter>", "search db"}}); // more is known of a receipt there
    at.reads.found = SearchHits{
        "db", {{FoundEntry::Kind::decision, "old", "Which db?", "", {}, "Postgres", "2027-01-14T08:00:00Z"},
                  {FoundEntry::Kind::decision, "receipt-7", "Typed", "", "z"},
                  {FoundEntry::Kind::decision, "receipt-8", "Reset", ""}}};
    EXPECT_TRUE(at.text().contains("Results for db") && at.text().contains("“Postgres” · Yesterday"));
    at.expect({{"<enter>", "card z"}, {"<up> ", "card old"}, {"<end><enter>", "receipts db"}});
    at.expect({{"i/db<up><up>", "up"}, {"<enter>", "card old"}, {"/d<down><down><enter>", ""}});
    EXPECT_EQ(at.selected(), "b") << "an open question is gone to";
    at.expect({{"h/d", "words d"}, {"<down><enter>", "open /topics/t%2F9"}});
    EXPECT_EQ(at.selected(), "nothing") << "the receipts are where they were";
}

TEST(PanelInput, allResultsAreListedToo) {
    auto deploy = question("b");
    deploy.title = "Deploy to Zürich?";
    PanelWorld at({question("a"), deploy});
    at.expect({{"/zü<tab>", "search zü"}, {"1adx", ""}});
    EXPECT_EQ(at.selected(), "question b") << "what waits is found without the daemon";
    at.expect({{"/", "words zü"}, {"<esc><enter>", ""}});
    EXPECT_EQ(at.selected(), "b");
    at.expect({{"/no<tab>", "search no"}});
    EXPECT_TRUE(at.text().contains("Searching"));
    at.reads.found = SearchHits{"no", {}};
    EXPECT_TRUE(at.text().contains("Nothing found"));
    at.expect({{"<esc>", ""}});
    EXPECT_EQ(at.selected(), "b");
}

TEST(PanelInput, theBarAsksAndLeadsToTheCardThatCameOfIt) {
    PanelWorld at({question("a")});
    at.expect({{"/ <enter>", ""}, {"<esc>/fix it", "words fix it"}, {"<enter>", "ask"}});
    EXPECT_TRUE(at.text().contains("▌ Ask: fix it"));
    at.bar.error = "No. Your words stay here.";
    at.bar.text = "fix it"; // as the bar gives them back
    at.expect({{"<esc>", ""}, {"/", "words fix it"}});
    EXPECT_TRUE(at.text().contains("⚠ No. Your words stay here."));

    at.bar.error.reset();
    at.bar.proposal = CommandBarState::Proposal{"made", "Claude Code, write", {}, 0};
    EXPECT_TRUE(at.text().contains("Card ready in your Inbox. Nothing runs before you press Run."));
    at.expect({{"<enter>", ""}});
    EXPECT_EQ(at.selected(), "a") << "the card is on its way";
    at.state.cards.push_back(question("made"));
    at.draw();
    EXPECT_EQ(at.selected(), "made");
}

TEST(PanelInput, agentsLeadToTheirCardsOrTheirTerminal) {
    auto other = question("b");
    other.sessionId = "2";
    auto state = ready({question("a"), other});
    state.agents.emplace().sessions = {
        session("claude", "1", "busy"), session("claude", "2", "busy"), session("codex", "3", "busy")};
    state.agents->sessions[1].callsign = "Cleo";
    PanelWorld at(state);
    at.expect({{"w", "terminal claude:1"}, {"gj<enter>", ""}});
    EXPECT_EQ(at.selected(), "b");
    EXPECT_TRUE(at.text().contains("Only Claude Code · Cleo"));
    at.pass(1);
    at.expect({{"<end>1", "answer b Yes"}, {"<esc><end>", ""}});
    EXPECT_EQ(at.focus().inbox.size(), 2U);
    at.expect({{"g<end><enter>", "terminal codex:3"}});
}

TEST(PanelInput, receiptsFilterAndLeadToTheirCard) {
    PanelWorld at({question("a")});
    at.expect({{"h", "receipts"}});
    at.reads.receipts = ReceiptList{"",
        {{.id = "9", .action = "answer.typed", .line = "One", .card = "a", .time = "2027-01-15T07:00:00Z"},
            {.id = "8", .action = "page.key_reset", .line = "Two", .time = "2027-01-14T07:00:00Z"},
            {.id = "7",
                .action = "answer.typed",
                .line = "Three",
                .card = "z",
                .time = "2027-01-14T06:00:00Z"}}};
    at.draw();
    at.expect({{"j<enter>", ""}, {"j<enter>", "card z"}, {"Fx", "receipts x"}, {"<enter>", ""}});
    EXPECT_TRUE(at.text().contains("Only x"));
    at.expect({{"<esc>", "receipts"}, {"<home><enter>", ""}});
    EXPECT_EQ(at.focus().section, PanelSection::inbox);

    at.reads.card = CardRecord{.id = "z", .title = "Over", .answer = "Yes", .outcome = "answered"};
    EXPECT_TRUE(at.text().contains("Answered “Yes”"));
    at.expect({{"q", "close"}});
}

/// Whatever a key does in some state of the panel, help tells of it.
TEST(PanelInput, helpNamesEveryKeyThatDoesSomething) {
    std::string help;
    for (const auto& line : PanelKeys::help(200))
        help += line.size() > 1 ? line[1].text + " " + line[2].text + "\n" : "";
    auto failed = ready({});
    failed.connection = Connection::failed("no");
    failed.onboardingActive = true;
    failed.backgroundState =
        BackgroundService::State{BackgroundServiceStatus::requiresApproval, true, {}, {}};
    for (const auto& state : {ready({question("a"), question("b")}), failed}) {
        for (char key = '!'; key <= '~'; ++key) {
            PanelWorld at(state);
            at.input.setLink(true);
            at.press("j");
            const auto before = at.text();
            const bool does =
                at.input.press({Key::Kind::text, std::string(1, key)}, at.time) || at.text() != before;
            const auto named = [&](const std::string& text) {
                return help.contains("\n" + text + " ") || help.contains(text + ",") ||
                       help.contains(text + ")");
            };
            const bool digit = key >= '0' && key <= '9';
            EXPECT_TRUE(!does || digit || named(std::string(1, key))) << key;
        }
    }
}

TEST(TerminalKeys, unknownSequencesAndAltAreNothing) {
    bool pasting = false;
    const auto read = [&](const std::vector<RawKey>& batch) {
        std::string all;
        static const std::map<Key::Kind, std::string> names = {{Key::Kind::text, ""},
            {Key::Kind::escape, "<esc>"}, {Key::Kind::enter, "<enter>"}, {Key::Kind::up, "<up>"},
            {Key::Kind::control, "^"}};
        for (const auto& key : keysFrom(batch, pasting)) {
            const auto name = names.find(key.kind);
            all += name == names.end() ? "<other>" : name->second + key.text;
        }
        return all;
    };
    const auto raw = [](std::u32string_view text) { return std::vector<RawKey>(text.begin(), text.end()); };
    EXPECT_EQ(read(raw(U"ab\r")), "ab<enter>");
    EXPECT_EQ(read(raw(U"\x1b")), "<esc>");
    EXPECT_EQ(read(raw(U"\x1b[1;5Cx")), "x");
    EXPECT_EQ(read(raw(U"\x1bOAx")), "x");
    EXPECT_EQ(read(raw(U"\x03\x01")), "^c^a");
    EXPECT_EQ(read({char32_t(0x1b), Key::Kind::up}), "<esc><up>");
    EXPECT_EQ(keysFrom(raw(U"e\u0301"), pasting).size(), 1U);

    // A paste comes in few pieces, however long it is and wherever the batches end.
    std::vector<RawKey> paste = {Key::Kind::pasteBegin};
    for (const char32_t c : std::u32string(500, U'x') + U"\ry")
        paste.emplace_back(c);
    EXPECT_EQ(keysFrom(paste, pasting).size(), 4U);
    EXPECT_TRUE(pasting);
    EXPECT_EQ(keysFrom({U'm', U'o', Key::Kind::pasteEnd, U'a'}, pasting).size(), 3U);
    EXPECT_FALSE(pasting);
}
