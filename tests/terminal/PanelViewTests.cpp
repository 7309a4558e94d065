#include "Kelvadrome/terminal/panel/PanelView.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include "tests/model/Cards.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

Card asked(const std::string& id, const std::string& title) {
    auto asked = card(id);
    asked.title = title;
    asked.agent = "claude";
    asked.options = {"Yes", "No"};
    return asked;
}

Card highRisk() {
    auto stop = asked("stop", "Delete the production database?");
    stop.kind = "stop";
    stop.risk = "high";
    stop.topic = "t1";
    return stop;
}

AppState withTopic(std::vector<Card> cards) {
    auto state = ready(std::move(cards));
    state.topics["t1"] = {"t1", "データベース移行", {}, 0};
    return state;
}

/// The panel of a state, with the first row picked.
struct Panel {
    AppState state;
    PanelExtras extras;
    PanelInput input;
    MenuPanelContent content;

    explicit Panel(AppState s) : state(std::move(s)) {
        content = menuPanel(state, now);
        input.update(content, state.cards, now - seconds(60));
    }
    void press(const std::string& letters) {
        for (const char letter : letters)
            input.press({Key::Kind::text, std::string(1, letter)}, now);
    }
    Picture draw(ScreenSize size) {
        auto picture = PanelView::draw(content, input.focus(), extras, size);
        input.drawn(picture.scroll, picture.page);
        return picture;
    }
    std::vector<std::string> lines(ScreenSize size) {
        std::vector<std::string> all;
        for (const auto& line : draw(size).lines)
            all.push_back(plainText(line));
        return all;
    }
    std::string text(ScreenSize size) {
        std::string all;
        for (const auto& line : lines(size))
            all += line + "\n";
        return all;
    }
};

void expectFits(Panel& panel, ScreenSize size) {
    const auto picture = panel.draw(size);
    EXPECT_EQ(picture.lines.size(), static_cast<std::size_t>(size.rows));
    for (const auto& line : picture.lines) {
        EXPECT_LE(TerminalText::width(plainText(line)), size.columns) << plainText(line);
        EXPECT_EQ(plainText(line).find('\n'), std::string::npos);
    }
    if (picture.cursor) {
        EXPECT_TRUE(picture.cursor->row >= 0 && picture.cursor->row < size.rows);
        EXPECT_LT(picture.cursor->column, size.columns);
    }
}

} // namespace

TEST(PanelView, fortyColumnsShowEverythingAligned) {
    auto question = asked("q", "Which index should the orders table get?");
    question.defaultAnswer = "Yes";
    auto state = withTopic({highRisk(), question});
    auto codex = session("codex", "1", "busy");
    codex.detail = "テストを実行中です";
    state.agents.emplace().sessions = {codex};
    Panel panel(std::move(state));
    panel.press("j");
    const std::vector<std::string> expected = {
        "  2 need you                  kelvadrome",
        "  1 agent working",
        "────────────────────────────────────────",
        "  Claude Code · デ…   ! High risk  5 min",
        "  Delete the production database?",
        "  - Yes   - No",
        "     Review in kelvadrome",
        "",
        "▌ Claude Code                      5 min",
        "▌ Which index should the orders table",
        "▌ get?",
        "▌ 1 Yes   2 No",
        "▌ a  Yes",
        "▌    Suggested. Holds 2 s so you can",
        "▌    undo.",
        "",
        "────────────────────────────────────────",
        "  ● Codex  テストを実行中です",
        "  o Open kelvadrome",
        "  1-9 choose  t type      ? keys  q quit",
    };
    EXPECT_EQ(panel.lines({20, 40}), expected);
}

TEST(PanelView, everySizeAndStateFits) {
    auto batch = asked("b", "Release questions for the next minor version");
    batch.kind = "batch";
    batch.rows = {
        {"q1", std::string(90, 'x'), "yes", ""}, {"q2", "日本語の質問です、とても長い質問です", {}, ""}};
    auto talkative = asked("t", "Zalgo e\u0301\u0301\u0301\u0301 and a tab\tand \x1b[2J");
    talkative.body =
        "First\n\n" + std::string(400, 'w') + " 漢字漢字漢字漢字漢字漢字漢字漢字漢字漢字漢字漢字";
    talkative.options = {std::string(120, 'o'), "二つ目の選択肢はとても長いので折り返す必要があります", "c"};
    talkative.topic = "t1";

    auto holding = ready({asked("h", "Hold")});
    holding.holds["h"] = holdOf(holding.cards[0], 1);
    holding.holds["h"].label = "A label " + std::string(80, 'l');
    auto failing = ready({});
    failing.connection = Connection::failed("kelvadromed stopped. " + std::string(100, 'e'));
    failing.panelError = std::string(300, 'p');
    auto setup = withTopic({highRisk()});
    setup.onboardingActive = true;
    setup.backgroundState = BackgroundService::State{BackgroundServiceStatus::requiresApproval, true, {}, {}};
    setup.agents.emplace().sessions.assign(20, session("エージェントの長い名前", "", "waiting"));

    for (const auto& state : {withTopic({batch, talkative, highRisk()}), withTopic({talkative}), holding,
             failing, setup, AppState()}) {
        for (const std::string keys : {"", " ", "j ", "t日本", "?"}) {
            Panel panel(state);
            panel.press(keys);
            for (int rows = 1; rows < 32; ++rows) {
                for (const int columns : {1, 20, 39, 40, 41, 57, 120})
                    expectFits(panel, {rows, columns});
            }
            panel.extras.link = PanelLink{"Open this page to review:",
                "http://127.0.0.1:4711/login?t=" + std::string(64, 'k'), {"It opens once."}};
            panel.extras.note = std::string(200, 'n');
            for (int rows = 10; rows < 24; ++rows)
                expectFits(panel, {rows, 40});
        }
    }
}

TEST(PanelView, theSelectedRowIsAlwaysInSight) {
    Panel panel(ready({asked("one", "One"), asked("two", "Two"), asked("three", "Three")}));
    for (const auto* title : {"▌ One", "▌ Two", "▌ Three"}) {
        EXPECT_TRUE(panel.text({10, 40}).contains(title)) << title;
        panel.press("j");
    }
    EXPECT_TRUE(panel.text({12, 40}).contains("↑ more"));
}

TEST(PanelView, whatAnAnswerLetsHappenIsReadBeforeItIsPressed) {
    auto question = asked("q", "Claude Code wants to run a command");
    question.body = "\n\n漢字漢字漢字漢字漢字漢字漢字漢字漢字漢字\n\n\x1b[2Jrm -rf build" +
                    std::string(200, ' ') + "&& make\tall\r\nin the folder of the project\nthe fifth line";
    question.defaultAnswer = "Yes";
    Panel panel(ready({question, asked("other", "Another")}));
    const std::vector<std::string> expected = {
        "▌ Claude Code                      5 min",
        "▌ Claude Code wants to run a command",
        "▌ 漢字漢字漢字漢字漢字漢字漢字漢字漢字漢",
        "▌ 字",
        "▌ �[2Jrm -rf build && make all",
        "▌ in the folder of the project",
        "▌ Enter  shows the rest",
        "▌ 1 Yes   2 No",
        "▌ a  Yes",
    };
    const auto lines = panel.lines({24, 40});
    EXPECT_EQ(std::vector(lines.begin() + 3, lines.begin() + 12), expected);
    panel.press(" ");
    EXPECT_TRUE(panel.text({40, 40}).contains("the fifth line"));
    panel.press("j");
    EXPECT_TRUE(panel.text({40, 40}).contains("  漢字漢字漢字漢字漢字漢字漢字漢字漢字漢\n  …\n"));
    expectFits(panel, {12, 40});
}

TEST(PanelView, aRowTellsWhyNoAnswerCanBePressedAndNamesNoKeyForOne) {
    auto away = asked("away", "Held elsewhere?");
    away.state = "held";
    auto never = asked("never", "Behind script?");
    never.answerable = false;
    never.deliveryNote = "The agent runs behind \"script\"; no answer can be typed there.";
    Panel panel(ready({away, never}));
    auto text = panel.text({24, 60});
    EXPECT_TRUE(text.contains("▌ An answer is on hold for Claude Code.\n▌ u  Undo\n")) << text;
    EXPECT_FALSE(text.contains("choose") || text.contains("1 Yes"));
    panel.press("j");
    text = panel.text({24, 60});
    EXPECT_TRUE(text.contains("▌ The agent runs behind \"script\"; no answer can be typed")) << text;
    EXPECT_TRUE(text.contains("▌ - Yes   - No\n▌ v  Review in kelvadrome\n"));
    EXPECT_FALSE(text.contains("choose") || text.contains("t type"));

    auto lost = ready({});
    lost.connection = Connection::starting();
    lost.pressed["q"] = {
        .card = asked("q", "Deploy?"), .label = "Yes", .known = PressedAnswer::Known::unclear};
    EXPECT_TRUE(Panel(lost).text({24, 60}).contains("“Yes” for Claude Code, “Deploy?”: No answer from"));
}

TEST(PanelView, aLongBodyScrollsWithinItsRow) {
    auto question = asked("q", "Long");
    for (int i = 0; i < 40; ++i)
        question.body += "line " + std::to_string(i) + "\n";
    Panel panel(ready({question}));
    panel.press(" ");
    EXPECT_TRUE(panel.text({20, 40}).contains("line 0"));
    for (int i = 0; i < 9; ++i) {
        panel.input.press({Key::Kind::pageDown, {}}, now);
        panel.draw({20, 40});
    }
    EXPECT_TRUE(panel.text({20, 40}).contains("line 39"));
    EXPECT_TRUE(panel.text({20, 40}).contains("1 Yes"));
}

TEST(PanelView, whatIsCutOffLeavesAMark) {
    auto question = asked("q", "Question");
    question.options = {std::string(38, 'x'), std::string(36, 'y'), "third"};
    Panel panel(ready({question}));
    EXPECT_EQ(panel.lines({16, 40}).at(5), "▌ 1 " + std::string(36, 'x'));
    EXPECT_EQ(panel.lines({16, 40}).at(6), "▌   xx …");
    question.options = {std::string(36, 'x'), std::string(36, 'y'), "third"};
    EXPECT_EQ(Panel(ready({question})).lines({16, 40}).at(6), "▌ 2 " + std::string(33, 'y') + "… …");
}

TEST(PanelView, theLineBeingTypedShowsAsAWhole) {
    Panel panel(ready({asked("q", "Question")}));
    panel.press("t");
    panel.press("answer ");
    for (int i = 0; i < 12; ++i)
        panel.input.press({Key::Kind::text, "漢"}, now);
    const auto picture = panel.draw({24, 40});
    ASSERT_TRUE(picture.cursor);
    EXPECT_EQ(plainText(picture.lines[static_cast<std::size_t>(picture.cursor->row)]),
        "> answer 漢漢漢漢漢漢漢漢漢漢漢漢");
    EXPECT_EQ(picture.cursor->column, 2 + 7 + 24);
    for (int i = 0; i < 12; ++i)
        panel.input.press({Key::Kind::text, "漢"}, now);
    EXPECT_EQ(panel.draw({24, 40}).cursor->column, 2 + 2 * 9); // 15 fit behind "answer", 9 stand below
}

TEST(PanelView, belowTheSmallestSizeItSaysSo) {
    Panel panel(ready({asked("q", "Question")}));
    EXPECT_TRUE(panel.text({8, 39}).contains("1 needs you. kelvadrome needs 40"));
    EXPECT_TRUE(panel.text({9, 80}).contains("columns and 10 lines"));
    EXPECT_TRUE(panel.text({10, 40}).contains("▌ Question"));
}
