#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/TerminalKeys.h"

#include "tests/model/Cards.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using namespace kelvadrome;
using namespace kelvadrome::test;
using Mode = PanelFocus::Mode;

namespace {

Card question(const std::string& id, std::vector<std::string> options = {"Yes", "No"}) {
    auto asked = card(id);
    asked.options = std::move(options);
    asked.defaultAnswer = "Yes";
    return asked;
}

/// A command as "answer a Yes"; empty for none.
std::string words(const std::optional<PanelCommand>& command) {
    using Kind = PanelCommand::Kind;
    static const std::map<Kind, std::string> kinds{{Kind::answer, "answer"}, {Kind::snooze, "snooze"},
        {Kind::review, "review"}, {Kind::undo, "undo"}, {Kind::quit, "quit"},
        {Kind::acknowledgeAlert, "acknowledge"}, {Kind::refuseAlert, "refuse"}};
    if (!command)
        return {};
    const auto kind = kinds.find(command->kind);
    auto words = kind == kinds.end() ? std::string("another command") : kind->second;
    if (command->card)
        words += " " + command->card->id + (command->card->version == 3 ? "" : " as changed");
    return words + (command->text.empty() ? "" : " " + command->text);
}

/// A panel under the user's fingers. Time stands still unless moved.
struct Fingers {
    AppState state;
    WallTime time = now;
    PanelInput input;

    explicit Fingers(std::vector<Card> cards) : state(ready(std::move(cards))) {
        show();
        pass(60);
    }
    void show() { input.update(menuPanel(state, time), state.cards, time); }
    void pass(double length) { time += seconds(length); }
    void hold(const std::string& id, bool committed = false) {
        state.holds[id] = PanelHold{question(id), "Yes", time + seconds(2), 2, committed};
        show();
    }

    /// What the last of these keys gives. "<down>" is the key of that name, "<^c>" one with Control.
    std::string press(const std::string& keys) {
        static const std::map<std::string, Key::Kind> names{{"up", Key::Kind::up}, {"down", Key::Kind::down},
            {"enter", Key::Kind::enter}, {"esc", Key::Kind::escape}, {"back", Key::Kind::backspace},
            {"paste", Key::Kind::pasteBegin}, {"pasted", Key::Kind::pasteEnd}};
        std::optional<PanelCommand> last;
        for (std::size_t i = 0; i < keys.size(); ++i) {
            Key key{Key::Kind::text, keys.substr(i, 1)};
            if (keys[i] == '<') {
                const auto name = keys.substr(i + 1, keys.find('>', i) - i - 1);
                key = name[0] == '^' ? Key{Key::Kind::control, name.substr(1)} : Key{names.at(name), {}};
                i += name.size() + 1;
            }
            last = input.press(key, time);
        }
        return words(last);
    }
    const PanelFocus& focus() const { return input.focus(); }
    /// Keys and what they give, one after the other.
    void expect(const std::vector<std::pair<std::string, std::string>>& rows) {
        for (const auto& [keys, words] : rows)
            EXPECT_EQ(press(keys), words) << keys;
    }
    /// Each of these keys does nothing and says why.
    void expectRefused(const std::string& keys) {
        for (const char key : keys) {
            EXPECT_EQ(press(std::string(1, key)), "") << key;
            EXPECT_FALSE(focus().hint.empty()) << key;
            EXPECT_EQ(focus().mode, Mode::rows) << key;
        }
    }
    /// Each of these keys, then the text of the answer that is typed.
    void expectTyped(const std::vector<std::pair<std::string, std::string>>& rows) {
        for (const auto& [keys, text] : rows) {
            EXPECT_EQ(press(keys), "") << keys;
            EXPECT_EQ(focus().mode, Mode::typing) << keys;
            EXPECT_EQ(focus().editor.text(), text) << keys;
        }
    }
};

} // namespace

TEST(PanelInput, picksARowAndAnswersIt) {
    Fingers at({question("a"), question("b"), question("c")});
    EXPECT_EQ(at.focus().selected, "a");
    at.expect({{"a", "answer a Yes"}, {"j2", "answer b No"},
        {"<down><down>1", "answer c Yes"}, // there is no further row
        {"<up>z", "snooze b"}, {"v", "review b"}, {"3", ""}, {"0", ""}, {"d", ""}});
}

TEST(PanelInput, numbersAboveNineTakeTwoDigits) {
    std::vector<std::string> options;
    for (int i = 1; i <= 12; ++i)
        options.push_back("option " + std::to_string(i));
    Fingers at({question("a", options)});
    at.expect({{"2", "answer a option 2"}, // nothing from 20 up
        {"1", ""}, {"2", "answer a option 12"}, {"1<enter>", "answer a option 1"},
        {"19", ""}, // 19 is none, and it isn't read as 9
        {"2", "answer a option 2"}, {"1<esc>2", "answer a option 2"}});
}

TEST(PanelInput, aCardThatTakesNoAnswerTakesNone) {
    auto away = question("away"), never = question("never");
    away.state = "held";
    never.answerable = false;
    Fingers at({away, never});
    at.expectRefused("1adtz");
    at.expect({{"u", "undo away"}, {"j", ""}});
    at.expectRefused("1at");
    at.expect({{"v", "review never"}, {"z", "snooze never"}});

    Fingers risky({card("s", "stop", "high")});
    risky.expectRefused("a1dt");
    risky.expect({{"v", "review s"}});
}

TEST(PanelInput, aRowThatChangedUnderTheFingerTakesNoAnswerForAMoment) {
    Fingers at({question("a"), question("b")});
    at.state.cards.erase(at.state.cards.begin());
    at.show();
    EXPECT_EQ(at.focus().selected, "b");
    at.expectRefused("a1tz");
    at.pass(PanelInput::settling + 0.01);
    at.expect({{"1", "answer b Yes"}});

    at.state.cards[0].version = 4;
    at.state.cards[0].options = {"No", "Yes"};
    at.show();
    at.expect({{"1", ""}});
    at.pass(PanelInput::settling + 0.01);
    at.expect({{"1", "answer b as changed No"}});

    // Rows that move around the selected one don't matter, nor does a row that the user picks.
    at.state.cards.insert(at.state.cards.begin(), question("new"));
    at.show();
    at.expect({{"1", "answer b as changed No"}, {"<up>1", "answer new Yes"}});

    // Nor does it take one when it takes answers again.
    at.state.pressed["new"] = {
        .card = at.state.cards[0], .label = "Yes", .known = PressedAnswer::Known::unclear};
    at.show();
    at.expect({{"1", ""}, {"t", ""}});
    at.state.pressed.clear();
    at.show();
    at.expectRefused("1");
    at.pass(1);
    at.expect({{"1", "answer new Yes"}});
}

TEST(PanelInput, undoFindsTheAnswerOnItsWay) {
    Fingers at({question("a"), question("b")});
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
    Fingers at({question("a"), question("b")});
    at.expectTyped({{"t", ""}, {"<enter>", ""}, {"quit? ", "quit? "}});
    at.input.press({Key::Kind::text, "日本"}, at.time);
    at.expect({{"<back><enter>", "answer a quit? 日"}});
    EXPECT_EQ(at.focus().mode, Mode::rows);

    at.expectTyped({{"t", "quit? 日"}}); // should the answer come back refused, its text is still there
    at.expect({{"<^c>", "quit"}});
    at.expectTyped({{"<^u>x", "x"}, {"<esc>t", "x"}, {"<esc>jt", ""}});
}

TEST(PanelInput, aPasteIsTextAndNeverASetOfCommands) {
    Fingers at({question("a")});
    at.expect({{"<paste>aq1t", ""}, {"<^c>", ""}, {"<pasted>", ""}});
    EXPECT_EQ(at.focus().mode, Mode::rows);
    at.expect(
        {{"t<paste>two<enter>", ""}, {"<esc><^c>", ""}, {"lines<pasted><enter>", "answer a two lines"}});
}

TEST(PanelInput, anAnswerForAChangedQuestionIsKeptBack) {
    Fingers at({question("a"), question("b")});
    at.press("thello");
    at.state.cards.erase(at.state.cards.begin());
    at.show();
    EXPECT_TRUE(at.focus().typingGone);
    at.expectTyped({{"<enter>", "hello"}});

    // Pushed out of the first three rows by others it is still open.
    at.press("<esc>");
    at.pass(1);
    at.press("thi");
    for (const auto* id : {"x", "y", "z"})
        at.state.cards.push_back(card(id, "question", "high"));
    at.show();
    EXPECT_FALSE(at.focus().typingGone);
    at.expect({{"<enter>", "answer b hi"}});
}

TEST(PanelInput, alertsAndHelpTakeTheKeys) {
    Fingers at({question("a")});
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
