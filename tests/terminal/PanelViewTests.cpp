#include "tests/terminal/PanelWorld.h"

#include <algorithm>

using namespace kelvadrome;
using namespace kelvadrome::test;
using Lines = std::vector<std::string>;

namespace {

void expectFits(PanelWorld& at, ScreenSize size) {
    at.size = size;
    const auto picture = at.draw();
    ASSERT_EQ(picture.lines.size(), static_cast<std::size_t>(size.rows));
    for (const auto& line : picture.lines) {
        const auto text = StyledText::plainText(line);
        ASSERT_LE(TerminalText::width(text), size.columns) << text;
        ASSERT_EQ(text.find('\n'), std::string::npos);
    }
    if (picture.cursor) {
        ASSERT_TRUE(picture.cursor->row >= 0 && picture.cursor->row < size.rows);
        ASSERT_LT(picture.cursor->column, size.columns);
    }
}

AppState withTopic(std::vector<Card> cards) {
    auto state = ready(std::move(cards));
    state.topics["t1"] = {"t1", "データベース移行", {}, 0};
    return state;
}

/// Two agents of one name, one with a high risk, one with a question.
PanelWorld twoAgents(ScreenSize size) {
    auto stop = highRisk();
    stop.sessionId = "1";
    stop.topic = "t1";
    auto asks = question("q");
    asks.title = "Which index should the orders table get?";
    asks.body = "EXPLAIN shows a full scan of 2 million rows.\nBoth indexes would help.";
    asks.sessionId = "2";
    auto state = withTopic({stop, asks});
    auto& sessions = state.agents.emplace().sessions;
    sessions = {session("claude", "1", "busy"), session("claude", "2", "busy")};
    sessions[0].callsign = "Ada";
    sessions[1].callsign = "Bruno";
    sessions[1].host = "tmux";
    sessions[1].tty = "pts/3";
    sessions[1].detail = "テストを実行中です";
    PanelWorld at(std::move(state));
    at.size = size;
    at.press("j");
    return at;
}

} // namespace

TEST(PanelView, fortyColumns) {
    EXPECT_EQ(twoAgents({20, 40}).lines(), (Lines{
                                               "  2 need you     [Inbox] Agents Receipts",
                                               "  2 agents working                2 of 2",
                                               "────────────────────────────────────────",
                                               "  Claude Code · Ada…  ! High risk  6 min",
                                               "  Delete the production database?",
                                               "",
                                               "▌ Claude Code · Bruno · tmux pts…  6 min",
                                               "▌ Which index should the orders table",
                                               "▌ get?",
                                               "▌ EXPLAIN shows a full scan of 2 million",
                                               "▌ rows.",
                                               "▌ Both indexes would help.",
                                               "▌ 1 Yes   2 No",
                                               "▌ a  Yes",
                                               "▌    Suggested. Holds 2 s so you can",
                                               "▌    undo.",
                                               "",
                                               "────────────────────────────────────────",
                                               "  o Open kelvadrome      / ask or search",
                                               "  1-9 choose  t type      ? keys  q quit",
                                           }));
}

TEST(PanelView, twelveLinesHaveRoomForTheSelectedCardAlone) {
    const auto lines = twoAgents({12, 40}).lines();
    EXPECT_EQ(lines[2], "▌ Claude Code · Bruno · tmux pts…  6 min");
    EXPECT_EQ(lines[9], "▌ a  Yes");
    EXPECT_EQ(lines[10], "  o Open kelvadrome      / ask or search");
}

TEST(PanelView, overSSHALinkComesWithItsTunnel) {
    PanelWorld at({question("q")});
    at.size = {16, 60};
    at.extras.link = PanelLink{"Open this page to review:", "http://127.0.0.1:4711/login?t=abc",
        "ssh -L 4711:127.0.0.1:4711 me@10.0.0.5", {"It opens once."}};
    at.input.setLink(true);
    // What is to be copied begins at the edge of the screen.
    EXPECT_TRUE(at.text().contains("\nssh -L 4711:127.0.0.1:4711 me@10.0.0.5\n  Then, in a browser there:\n"
                                   "http://127.0.0.1:4711/login?t=abc\n"))
        << at.text();
}

TEST(PanelView, theListBesideWhatIsSelected) {
    EXPECT_EQ(twoAgents({16, 120}).lines(),
        (Lines{
            "  2 need you                                                                                    "
            " [Inbox] Agents Receipts",
            "  2 agents working                                                                              "
            "                  2 of 2",
            "  Claude Code · Ada · デー…   ! High risk  6 min │ Claude Code · Bruno · tmux pts/3             "
            "                   6 min",
            "  Delete the production database?                │ Which index should the orders table get?",
            "▌ Claude Code · Bruno · tmux pts/3         6 min │ EXPLAIN shows a full scan of 2 million rows.",
            "▌ Which index should the orders table get?       │ Both indexes would help.",
            "                                                 │ 1 Yes",
            "                                                 │ 2 No",
            "                                                 │ a  Yes  Suggested. Holds 2 s so you can "
            "undo.",
            "                                                 │",
            "                                                 │",
            "                                                 │",
            "  ● Claude Code · Ada                 working",
            "  ● Claude Code · Bruno · tmux pts/3  テストを実行中です",
            "  o Open kelvadrome                                                                             "
            "         / ask or search",
            "  1-9 choose  t type  z snooze  x dismiss  v review  / ask  Tab section                         "
            "          ? keys  q quit",
        }));
}

TEST(PanelView, everySizeAndStateFits) {
    auto batch = question("b");
    batch.kind = "batch";
    batch.rows = {
        {"q1", std::string(90, 'x'), "yes", ""}, {"q2", "日本語の質問です、とても長い質問です", {}, ""}};
    auto talkative = question("t");
    talkative.title = "Zalgo e\u0301\u0301\u0301\u0301 and a tab\tand \x1b[2J";
    talkative.body =
        "First\n\n" + std::string(400, 'w') + " 漢字漢字漢字漢字漢字漢字漢字漢字漢字漢字漢字漢字";
    talkative.options = {std::string(120, 'o'), "二つ目の選択肢はとても長いので折り返す必要があります", "c"};
    talkative.topic = "t1";

    auto holding = ready({question("h")});
    holding.holds["h"] = holdOf(holding.cards[0], 1);
    holding.holds["h"].label = "A label " + std::string(80, 'l');
    auto failing = ready({});
    failing.connection = Connection::failed("kelvadromed stopped. " + std::string(100, 'e'));
    failing.panelError = std::string(300, 'p');
    auto setup = withTopic({highRisk()});
    setup.onboardingActive = true;
    setup.backgroundState = BackgroundService::State{BackgroundServiceStatus::requiresApproval, true, {}, {}};
    setup.agents.emplace().sessions.assign(20, session("エージェントの長い名前", "", "waiting"));

    for (const auto& state :
        {withTopic({batch, talkative, highRisk()}), holding, failing, setup, AppState()}) {
        for (const std::string keys : {"", " ", "j ", "t日本", "?", "g", "h", "/日本", "/日本<tab>", "xx"}) {
            PanelWorld at(state);
            at.bar.hits = {{"decision", "d", {}, std::string(90, 'h'), std::string(90, 's')}};
            at.press(keys);
            for (int rows = 1; rows < 32; rows += 3) {
                for (const int columns : {1, 20, 39, 40, 41, 57, 119, 120, 200})
                    expectFits(at, {rows, columns});
            }
            at.extras.link = PanelLink{"Open this page to review:",
                "http://127.0.0.1:4711/login?t=" + std::string(64, 'k'), "ssh -L", {"It opens once."}};
            at.extras.note = std::string(200, 'n');
            for (int rows = 10; rows < 24; ++rows)
                expectFits(at, {rows, 40});
        }
    }
}

TEST(PanelView, allOfAThousandCardsAreReached) {
    std::vector<Card> cards;
    for (int i = 1; i <= 1007; ++i)
        cards.push_back(question("card " + std::to_string(i)));
    for (const ScreenSize size : {ScreenSize{12, 40}, {24, 80}, {40, 120}}) {
        PanelWorld at(cards);
        at.size = size;
        for (const auto& [keys, place] : std::vector<std::pair<std::string, int>>{
                 {"<end>", 1007}, {"<up>", 1006}, {"<^u>", 996}, {"<home>", 1}, {"<pgdn><^d>", 0}}) {
            at.press(keys);
            const auto text = at.text();
            const auto row = place > 0 ? place : static_cast<int>(at.focus().inbox.index()) + 1;
            EXPECT_TRUE(text.contains("▌ card " + std::to_string(row) + (size.columns < 120 ? "\n" : " ")))
                << text;
            EXPECT_TRUE(text.contains(std::to_string(row) + " of 1007")) << text;
        }
    }
}

TEST(PanelView, whatComesAndGoesMovesNothingUnderTheSelection) {
    PanelWorld at({question("a"), question("b"), question("c"), question("d")});
    at.press("jj");
    const auto lineOf = [&] {
        const auto lines = at.lines();
        return std::ranges::find(lines, "▌ c") - lines.begin();
    };
    const auto before = lineOf();
    at.state.cards.insert(at.state.cards.begin(), question("new"));
    EXPECT_EQ(lineOf(), before);
    at.hold("a");
    EXPECT_EQ(lineOf(), before);
    std::erase_if(at.state.cards, [](const Card& card) { return card.id == "a"; });
    at.hold("a", true);
    EXPECT_TRUE(at.text().contains("✓ Yes. Sent to Claude Code"));
    EXPECT_EQ(lineOf(), before);
    EXPECT_EQ(at.content->inbox[1].id(), "a") << "it keeps the place of its card";
    at.state.holds.clear();
    EXPECT_EQ(lineOf(), before);
    at.state.cards.erase(at.state.cards.begin(), at.state.cards.begin() + 2);
    EXPECT_EQ(lineOf(), before);
}

TEST(PanelView, whatAnAnswerLetsHappenIsReadBeforeItIsPressed) {
    auto asks = question("q");
    asks.title = "Claude Code wants to run a command";
    asks.body = "\n\n漢字漢字漢字漢字漢字漢字漢字漢字漢字漢字\n\n\x1b[2Jrm -rf build" +
                std::string(200, ' ') + "&& make\tall\r\nin the folder of the project\nthe fifth line";
    PanelWorld at({asks, question("other")});
    at.size = {24, 40};
    const Lines expected = {
        "▌ Claude Code                      6 min",
        "▌ Claude Code wants to run a command",
        "▌ 漢字漢字漢字漢字漢字漢字漢字漢字漢字漢",
        "▌ 字",
        "▌ �[2Jrm -rf build && make all",
        "▌ in the folder of the project",
        "▌ Enter  shows the rest",
        "▌ 1 Yes   2 No",
        "▌ a  Yes",
    };
    const auto lines = at.lines();
    EXPECT_EQ(Lines(lines.begin() + 3, lines.begin() + 12), expected);
    at.press(" ");
    at.size = {40, 40};
    EXPECT_TRUE(at.text().contains("the fifth line"));
    at.size = {40, 120};
    EXPECT_TRUE(at.text().contains("the fifth line"));
}

TEST(PanelView, aCardSaysWhatIsKnownOfItsAnswer) {
    auto away = question("away"), never = question("never");
    away.state = "held";
    never.answerable = false;
    never.deliveryNote = "The agent runs behind \"script\"; no answer can be typed there.";
    PanelWorld at({away, never});
    auto text = at.text();
    EXPECT_TRUE(text.contains("▌ ! An answer is on hold for Claude Code.\n▌ u  Undo\n")) << text;
    EXPECT_FALSE(text.contains("choose") || text.contains("1 Yes"));
    at.press("j");
    text = at.text();
    EXPECT_TRUE(text.contains("▌ ! The agent runs behind \"script\"; no answer can be typed")) << text;
    EXPECT_TRUE(text.contains("▌ - Yes   - No\n▌ v  Review in kelvadrome\n"));
    EXPECT_FALSE(text.contains("choose") || text.contains("t type"));

    // While the daemon is away the card itself goes on saying it.
    at.state.connection = Connection::starting();
    at.state.pressed["away"] = {.card = away, .label = "Yes", .known = PressedAnswer::Known::unclear};
    text = at.text();
    EXPECT_TRUE(
        text.contains("Starting the daemon") && text.contains("▌ ! “Yes”: No answer from the daemon yet"))
        << text;
    at.press("g");
    EXPECT_TRUE(at.text().contains("“Yes” for Claude Code"));

    // A refusal stands on the card and at the bottom, on the smallest screen too.
    PanelWorld refused({question("q")});
    refused.size = PanelView::smallest;
    refused.state.panelError = "The pane no longer holds this session.";
    refused.state.pressed["q"] = {.card = refused.state.cards[0],
        .label = "Yes",
        .known = PressedAnswer::Known::refused,
        .reason = "no such pane"};
    text = refused.text();
    EXPECT_TRUE(text.contains("⚠ The pane no longer holds this") && text.contains("such pane")) << text;
}

TEST(PanelView, aLongBodyScrolls) {
    auto asks = question("q");
    for (int i = 0; i < 40; ++i)
        asks.body += "line " + std::to_string(i) + "\n";
    for (const ScreenSize size : {ScreenSize{20, 40}, {20, 120}}) {
        PanelWorld at({asks});
        at.size = size;
        at.draw();
        if (size.columns < 120)
            at.press(" ");
        EXPECT_TRUE(at.text().contains("line 0"));
        at.press("<pgdn><pgdn><pgdn><pgdn>");
        EXPECT_TRUE(at.text().contains("line 39") && at.text().contains("1 Yes")) << at.text();
        at.press("<pgup><pgup><pgup><pgup>");
        EXPECT_TRUE(at.text().contains("line 0"));
    }
}

TEST(PanelView, theLineBeingTypedShowsAsAWhole) {
    PanelWorld at({question("q")});
    at.size = {24, 40};
    at.press("t");
    at.press("answer ");
    const auto type = [&] {
        for (int i = 0; i < 12; ++i)
            at.input.press({Key::Kind::text, "漢"}, at.time);
        return at.draw();
    };
    const auto picture = type();
    ASSERT_TRUE(picture.cursor);
    EXPECT_EQ(StyledText::plainText(picture.lines[static_cast<std::size_t>(picture.cursor->row)]),
        "> answer 漢漢漢漢漢漢漢漢漢漢漢漢");
    EXPECT_EQ(picture.cursor->column, 2 + 7 + 24);
    EXPECT_EQ(type().cursor->column, 2 + 2 * 9); // 15 fit behind "answer", 9 stand below
}

TEST(PanelView, belowTheSmallestSizeItSaysSo) {
    PanelWorld at({question("q")});
    at.size = {8, 39};
    EXPECT_TRUE(at.text().contains("1 needs you. kelvadrome needs 40"));
    at.size = PanelView::smallest;
    EXPECT_TRUE(at.text().contains("▌ q"));
}
