#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/TerminalKeys.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using namespace kelvadrome;
using Kind = PanelCommand::Kind;
using Mode = PanelFocus::Mode;

namespace {

Card question(const std::string& id, std::vector<std::string> options = {"Yes", "No"}) {
    Card card;
    card.id = id;
    card.version = 3;
    card.kind = "question";
    card.title = id;
    card.options = std::move(options);
    card.defaultAnswer = "Yes";
    return card;
}

/// A panel under the user's fingers. Time stands still unless moved.
struct Fingers {
    AppState state;
    WallTime now = wallTime(1'800'000'000);
    PanelInput input;

    explicit Fingers(std::vector<Card> cards) {
        state.connection = Connection::ready();
        state.cards = std::move(cards);
        show();
        now += seconds(60);
    }
    void show() { input.update(menuPanel(state, now), state.cards, now); }

    /// What the last of these keys gave. Letters are themselves.
    std::optional<PanelCommand> press(const std::string& letters) {
        std::optional<PanelCommand> last;
        for (const char letter : letters)
            last = press(Key{Key::Kind::text, std::string(1, letter)});
        return last;
    }
    std::optional<PanelCommand> press(Key key) { return input.press(key, now); }
    std::optional<PanelCommand> press(Key::Kind kind) { return input.press({kind, {}}, now); }
    std::optional<PanelCommand> control(const std::string& letter) {
        return input.press({Key::Kind::control, letter}, now);
    }
    const PanelFocus& focus() const { return input.focus(); }
};

void expectAnswer(
    const std::optional<PanelCommand>& command, const std::string& card, const std::string& text) {
    ASSERT_TRUE(command);
    EXPECT_EQ(command->kind, Kind::answer);
    EXPECT_EQ(command->card->id, card);
    EXPECT_EQ(command->text, text);
}

} // namespace

TEST(PanelInput, aCardThatTakesNoAnswerTakesNone) {
    auto away = question("away"), never = question("never");
    away.state = "held";
    never.answerable = false;
    Fingers at({away, never});
    for (const auto* key : {"1", "a", "d", "t", "z"}) {
        EXPECT_FALSE(at.press(key)) << key;
        EXPECT_FALSE(at.focus().hint.empty()) << key;
        EXPECT_EQ(at.focus().mode, Mode::rows) << key;
    }
    EXPECT_EQ(at.press("u")->card->id, "away");
    at.press("j");
    EXPECT_FALSE(at.press("1"));
    EXPECT_FALSE(at.press("a"));
    EXPECT_EQ(at.press("v")->card->id, "never");
    EXPECT_EQ(at.press("z")->kind, Kind::snooze);
}

TEST(PanelInput, aRowThatTakesAnswersAgainTakesThemOnlyAfterALook) {
    Fingers at({question("a")});
    at.state.pressed["a"] = {
        .card = at.state.cards[0], .label = "Yes", .known = PressedAnswer::Known::unclear};
    at.show();
    EXPECT_FALSE(at.press("1"));
    at.press("t");
    at.state.pressed.clear();
    at.show();
    EXPECT_FALSE(at.press("1")) << "it changed under the finger";
    at.now += seconds(1);
    expectAnswer(at.press("1"), "a", "Yes");
}

TEST(PanelInput, picksARowAndAnswersIt) {
    Fingers at({question("a"), question("b"), question("c")});
    EXPECT_EQ(at.focus().selected, "a");
    expectAnswer(at.press("a"), "a", "Yes");
    expectAnswer(at.press("j2"), "b", "No");
    at.press(Key::Kind::down);
    at.press(Key::Kind::down); // there is no further row
    expectAnswer(at.press("1"), "c", "Yes");
    at.press(Key::Kind::up);
    EXPECT_EQ(at.press("z")->kind, Kind::snooze);
    EXPECT_EQ(at.press("v")->card->id, "b");
    EXPECT_FALSE(at.press("3"));
    EXPECT_FALSE(at.press("0"));
    EXPECT_FALSE(at.press("d"));
}

TEST(PanelInput, numbersAboveNineTakeTwoDigits) {
    std::vector<std::string> options;
    for (int i = 1; i <= 12; ++i)
        options.push_back("option " + std::to_string(i));
    Fingers at({question("a", options)});
    expectAnswer(at.press("2"), "a", "option 2"); // nothing from 20 up
    EXPECT_FALSE(at.press("1"));
    EXPECT_EQ(at.focus().digits, "1");
    expectAnswer(at.press("2"), "a", "option 12");
    at.press("1");
    expectAnswer(at.press(Key::Kind::enter), "a", "option 1");
    at.press("1");
    EXPECT_FALSE(at.press("9")); // 19 is none, and it isn't read as 9
    EXPECT_TRUE(at.focus().digits.empty());
    at.press("1");
    at.press(Key::Kind::escape);
    expectAnswer(at.press("2"), "a", "option 2");
}

TEST(PanelInput, aHighRiskCardIsOnlyReviewed) {
    auto stop = question("s");
    stop.kind = "stop";
    stop.risk = "high";
    Fingers at({stop});
    for (const auto* key : {"a", "1", "d", "t"}) {
        EXPECT_FALSE(at.press(key)) << key;
        EXPECT_FALSE(at.focus().hint.empty()) << key;
        EXPECT_EQ(at.focus().mode, Mode::rows) << key;
    }
    EXPECT_EQ(at.press("v")->kind, Kind::review);
}

TEST(PanelInput, aRowThatMovedUnderTheFingerTakesNoAnswerForAMoment) {
    Fingers at({question("a"), question("b")});
    at.state.cards.erase(at.state.cards.begin());
    at.show();
    EXPECT_EQ(at.focus().selected, "b");
    EXPECT_FALSE(at.press("a"));
    EXPECT_FALSE(at.press("1"));
    EXPECT_FALSE(at.press("t"));
    EXPECT_FALSE(at.press("z"));
    at.now += seconds(PanelInput::settling + 0.01);
    expectAnswer(at.press("1"), "b", "Yes");

    at.state.cards[0].version = 4;
    at.state.cards[0].options = {"No", "Yes"};
    at.show();
    EXPECT_FALSE(at.press("1"));
    at.now += seconds(PanelInput::settling + 0.01);
    expectAnswer(at.press("1"), "b", "No");
    EXPECT_EQ(at.press("1")->card->version, 4);

    // Rows that move around the selected one don't matter, nor does a row that the user picks.
    at.state.cards.insert(at.state.cards.begin(), question("new"));
    at.show();
    expectAnswer(at.press("1"), "b", "No");
    at.press(Key::Kind::up);
    expectAnswer(at.press("1"), "new", "Yes");
}

TEST(PanelInput, undoFindsTheAnswerOnItsWay) {
    Fingers at({question("a"), question("b")});
    EXPECT_FALSE(at.press("u"));
    at.state.holds["a"] = PanelHold{question("a"), "Yes", at.now + seconds(2), 2, false};
    at.show();
    EXPECT_FALSE(at.press("1")); // it is answered already
    at.press(Key::Kind::down);
    EXPECT_EQ(at.press("u")->card->id, "a");
    at.state.holds["b"] = PanelHold{question("b"), "Yes", at.now + seconds(2), 2, false};
    at.show();
    EXPECT_EQ(at.press("u")->card->id, "b");
    at.state.holds["b"].committed = true;
    at.show();
    EXPECT_EQ(at.press("u")->card->id, "a");
    at.state.holds["a"].committed = true;
    at.show();
    EXPECT_FALSE(at.press("u"));
}

TEST(PanelInput, whatIsTypedIsWhatIsSent) {
    Fingers at({question("a"), question("b")});
    at.press("t");
    ASSERT_EQ(at.focus().mode, Mode::typing);
    EXPECT_FALSE(at.press(Key::Kind::enter)); // nothing typed yet
    EXPECT_EQ(at.focus().mode, Mode::typing);
    at.press("quit? ");
    at.press(Key{Key::Kind::text, "日本"});
    at.press(Key::Kind::backspace);
    expectAnswer(at.press(Key::Kind::enter), "a", "quit? 日");
    EXPECT_EQ(at.focus().mode, Mode::rows);

    at.press("t"); // should the answer come back refused, its text is still there
    EXPECT_EQ(at.focus().editor.text(), "quit? 日");
    EXPECT_EQ(at.control("c")->kind, Kind::quit);
    at.control("u");
    at.press("x");
    at.press(Key::Kind::escape);
    EXPECT_EQ(at.focus().mode, Mode::rows);
    at.press("t");
    EXPECT_EQ(at.focus().editor.text(), "x");
    at.press(Key::Kind::escape);
    at.press("jt");
    EXPECT_TRUE(at.focus().editor.text().empty());
}

TEST(PanelInput, aPasteIsTextAndNeverASetOfCommands) {
    Fingers at({question("a")});
    at.press(Key::Kind::pasteBegin);
    EXPECT_FALSE(at.press("aq1t"));
    EXPECT_FALSE(at.control("c"));
    at.press(Key::Kind::pasteEnd);
    EXPECT_EQ(at.focus().mode, Mode::rows);

    at.press("t");
    at.press(Key::Kind::pasteBegin);
    at.press("two");
    EXPECT_FALSE(at.press(Key::Kind::enter));
    at.press(Key::Kind::escape);
    EXPECT_FALSE(at.control("c"));
    at.press("lines");
    at.press(Key::Kind::pasteEnd);
    expectAnswer(at.press(Key::Kind::enter), "a", "two lines");
}

TEST(PanelInput, anAnswerForAChangedQuestionIsKeptBack) {
    Fingers at({question("a"), question("b")});
    at.press("thello");
    at.state.cards.erase(at.state.cards.begin());
    at.show();
    EXPECT_TRUE(at.focus().typingGone);
    EXPECT_FALSE(at.press(Key::Kind::enter));
    EXPECT_EQ(at.focus().editor.text(), "hello");

    // Pushed out of the first three rows by others it is still open.
    at.press(Key::Kind::escape);
    at.now += seconds(1);
    at.press("thi");
    for (const auto* id : {"x", "y", "z"}) {
        auto stop = question(id);
        stop.risk = "high";
        at.state.cards.push_back(stop);
    }
    at.show();
    EXPECT_FALSE(at.focus().typingGone);
    expectAnswer(at.press(Key::Kind::enter), "b", "hi");
}

TEST(PanelInput, alertsAndHelpTakeTheKeys) {
    Fingers at({question("a")});
    at.press("?");
    EXPECT_EQ(at.focus().mode, Mode::help);
    EXPECT_FALSE(at.press("a"));
    EXPECT_EQ(at.focus().mode, Mode::rows);

    at.press("tabc");
    at.input.setAlert(true);
    EXPECT_FALSE(at.press("a"));
    EXPECT_EQ(at.press(Key::Kind::enter)->kind, Kind::acknowledgeAlert);
    // A question comes in its place: what a hurried hand presses changes nothing.
    at.input.setAlert(true, true);
    EXPECT_FALSE(at.press("y"));
    EXPECT_EQ(at.press(Key::Kind::enter)->kind, Kind::refuseAlert);
    EXPECT_EQ(at.press(Key::Kind::escape)->kind, Kind::refuseAlert);
    EXPECT_EQ(at.press("q")->kind, Kind::acknowledgeAlert);
    at.input.setAlert(false);
    EXPECT_EQ(at.focus().mode, Mode::typing);
    EXPECT_EQ(at.focus().editor.text(), "abc");
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
