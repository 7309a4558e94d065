#include "Kelvadrome/terminal/panel/LineEditor.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using namespace kelvadrome;
using Lines = std::vector<std::string>;

TEST(TerminalText, nothingFromOutsideReachesTheTerminalAsAControl) {
    const std::vector<std::pair<std::string, std::string>> rows = {{"plain", "plain"},
        {"\x1b[2Jgone\x07", "\uFFFD[2Jgone\uFFFD"}, {"\u009b31mred", "\uFFFD31mred"},
        {"pay \u202Eeur 01\u202C", "pay \uFFFDeur 01\uFFFD"}, {"a\r\nb\tc\u2028d", "a\nb c\nd"},
        {"zero\u200Bwidth\uFEFF", "zerowidth"}, {"\u0301alone", "\u25CC\u0301alone"},
        {"bad \xff byte", "bad \uFFFD byte"}, {"unassigned \u0378", "unassigned \uFFFD"},
        {"👩\u200D💻", "👩\u200D💻"}};
    for (const auto& [from, to] : rows)
        EXPECT_EQ(TerminalText::clean(from), to);
    EXPECT_EQ(TerminalText::cleanLine("  two \n lines\t "), "two lines");
}

TEST(TerminalText, widthCountsColumns) {
    EXPECT_EQ(TerminalText::width("a日本"), 5);
    EXPECT_EQ(TerminalText::width("e\u0301"), 1);
    EXPECT_EQ(TerminalText::width("\u1112\u1161\u11AB"), 2); // one syllable in three parts
    EXPECT_EQ(TerminalText::width("हिन्दी"), 5);              // its vowel signs take columns of their own
    EXPECT_EQ(TerminalText::width("●◆✗…⚠▌━"), 7);
    for (const auto* emoji : {"👩\u200D💻", "👨\u200D👩\u200D👧\u200D👦", "👍🏽", "❤\uFE0F", "🇨🇭"})
        EXPECT_EQ(TerminalText::width(emoji), 2) << emoji;
}

TEST(TerminalText, wrapsWideAndCombiningTextWithinTheColumns) {
    const std::vector<std::tuple<std::string, int, Lines>> rows = {{"", 5, {""}},
        {"one two three", 7, {"one two", "three"}}, {"a unbreakable", 4, {"a", "unbr", "eaka", "ble"}},
        {"日本語の文", 5, {"日本", "語の", "文"}}, {"cafe\u0301 cafe\u0301", 4, {"cafe\u0301", "cafe\u0301"}},
        {"  indented text", 10, {"  indented", "text"}}, {"first\n\nsecond", 10, {"first", "", "second"}},
        {"wide 日 end", 7, {"wide 日", "end"}}};
    for (const auto& [text, columns, lines] : rows) {
        EXPECT_EQ(TerminalText::wrap(text, columns), lines) << text;
        for (const auto& line : lines)
            EXPECT_LE(TerminalText::width(line), columns) << text;
    }
}

TEST(TerminalText, elidesWithoutCuttingACharacter) {
    EXPECT_EQ(TerminalText::elide("short", 5), "short");
    EXPECT_EQ(TerminalText::elide("longer", 5), "long…");
    EXPECT_EQ(TerminalText::elide("日本語", 5), "日本…");
    EXPECT_EQ(TerminalText::elide("日本語", 4), "日…");
    EXPECT_EQ(TerminalText::elide("abc", 0), "");
}

namespace {

/// A script of keys: "<" left, ">" right, "-" backspace, "." delete, "^a" and so on, anything else is typed.
std::string edited(const std::string& script) {
    static const std::map<std::string, void (LineEditor::*)()> keys = {{"<", &LineEditor::left},
        {">", &LineEditor::right}, {"-", &LineEditor::backspace}, {".", &LineEditor::deleteForward},
        {"^a", &LineEditor::home}, {"^e", &LineEditor::end}, {"^u", &LineEditor::killToStart},
        {"^k", &LineEditor::killToEnd}, {"^w", &LineEditor::killWord}};
    LineEditor editor;
    for (std::size_t i = 0; i < script.size(); ++i) {
        const auto word = script[i] == '^' ? script.substr(i++, 2) : script.substr(i, 1);
        const auto key = keys.find(word);
        if (key == keys.end())
            editor.insert(word);
        else
            (editor.*key->second)();
    }
    return editor.text().substr(0, editor.cursor()) + "|" + editor.text().substr(editor.cursor());
}

} // namespace

TEST(LineEditor, editsAroundTheCursor) {
    for (const auto& [script, result] : std::vector<std::pair<std::string, std::string>>{{"ac<b", "ab|c"},
             {"abc<<-", "|bc"}, {"abc^a.", "|bc"}, {"abc>.^e", "abc|"}, {"one two  ^w", "one |"},
             {"one two<<<^u", "|two"}, {"one two<<<^k", "one |"}, {"^w^u-", "|"}})
        EXPECT_EQ(edited(script), result) << script;
}

TEST(LineEditor, theCursorNeverStandsInsideACharacter) {
    LineEditor editor;
    editor.insert("a👩\u200D💻e\u0301");
    editor.left();
    EXPECT_EQ(editor.text().substr(editor.cursor()), "e\u0301");
    editor.left();
    EXPECT_EQ(editor.cursor(), 1U);
    editor.deleteForward();
    EXPECT_EQ(editor.text(), "ae\u0301");
    editor.end();
    editor.backspace();
    EXPECT_EQ(editor.text(), "a");
    editor.insert("\u0308"); // joins the character before it
    editor.left();
    EXPECT_EQ(editor.cursor(), 0U);
}

TEST(LineEditor, holdsOnlyWhatCanBeSeen) {
    LineEditor editor;
    EXPECT_TRUE(editor.insert("two\r\nlines\nand\ta\x1b[31m tab\u200B"));
    EXPECT_EQ(editor.text(), "two lines and a[31m tab");
    EXPECT_FALSE(editor.insert(std::string(LineEditor::limit, 'x')));
    EXPECT_EQ(editor.text().size(), LineEditor::limit);
    editor.clear();
    editor.insert("   ");
    EXPECT_TRUE(editor.blank());
}
