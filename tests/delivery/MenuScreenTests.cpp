#include "KelvadromeKit/delivery/MenuScreen.h"
#include "KelvadromeKit/support/Text.h"

#include "tests/delivery/LiveExecutorFixture.h"

namespace kelvadrome::test {
namespace {

const Lines permission{"Yes", "Yes, and always allow access to tmp/ from this project", "No"};
const Lines databases{"PostgreSQL", "SQLite", "日本語 – größer"};
const std::string gone = "the menu is no longer on the screen";

const std::string claude = " Do you want to proceed?\n ❯ 1. Yes\n"
                           "   2. Yes, and always allow access to tmp/ from this project\n   3. No\n\n"
                           " Esc to cancel · Tab to amend\n";
const std::string claudeAsks =
    "Which database?\n\n❯ 1. PostgreSQL\n     Use it\n  2. SQLite\n     Use SQLite\n"
    "  3. 日本語 – größer\n  4. Type something.\n────────────\n  5. Chat about this\n\n"
    "Enter to select · ↑/↓ to navigate · Esc to cancel\n";
const std::string codex = "  $ touch made\n\n› 1. Yes, proceed (y)\n"
                          "  2. Yes, and don’t ask again for commands that start with `touch` (p)\n"
                          "  3. No, and tell Codex what to do differently (esc)\n\n"
                          "  Press enter to confirm or esc to cancel\n";
const Lines codexOptions{"Yes, proceed", "Yes, and don't ask again for commands that start with `touch`",
    "No, and tell Codex what to do differently"};

std::string with(std::string text, const std::string& what, const std::string& instead) {
    return Text::replaceAll(text, what, instead);
}
/// As a terminal of this width breaks the lines.
std::string wrapped(const std::string& screen, std::size_t columns) {
    std::string narrow;
    std::size_t used = 0;
    for (const auto c : Text::scalars(screen)) {
        const auto one = Text::fromScalars(std::u32string(1, c));
        const auto width = c == '\n' ? 0 : Text::columns(one);
        if (used + width > columns)
            narrow += '\n', used = 0;
        narrow += one;
        used = c == '\n' ? 0 : used + width;
    }
    return narrow;
}

TEST(MenuScreen, aDigitIsTypedOnlyForTheOptionThatItHasOnTheScreen) {
    const std::string framed = with(with(claude, "\n ", "\n│ "), "\n", "    │\n");
    const std::string boxed = "│ ❯ 1. Yes                    │\n│   2. Yes, and always allow   │\n"
                              "│      access to tmp/ from     │\n│      this project            │\n"
                              "│   3. No                      │\n╰──────────────────────────────╯\n";
    const struct {
        std::string screen;
        Lines options;
        std::size_t number;
        std::string refusal = {};
        std::string agent = "claude";
        std::size_t columns = 120;
    } rows[] = {
        {claude, permission, 1},
        {claude, permission, 2},
        {claude, permission, 3},
        {claudeAsks, databases, 2},
        {claudeAsks, databases, 3},
        {"● Pay?\n\n❯ 1. Approve\n  2. Reject\n\n1-2 to choose · ↑↓ and Enter work too",
            {"Approve", "Reject"}, 2},
        {"› 1. Yes, proceed (y)   Run it\n  2. No              │ preview\n", {"Yes, proceed", "No"}, 2, "",
            "codex"},
        {codex, codexOptions, 1, "", "codex"},
        {codex, codexOptions, 2, "", "codex"},
        {codex, codexOptions, 3, "", "codex"},
        {with(claudeAsks, "ö", "o\u0308"), databases, 3},
        {claudeAsks, databases, 9, "the menu on the screen has no option 9"},
        // What the pane's width does to a label.
        {framed, permission, 2},
        {boxed, permission, 2, "", "claude", 32},
        {boxed, permission, 3, "", "claude", 32},
        {wrapped(claude, 20), permission, 2, "", "claude", 20},
        {wrapped(codex, 30), codexOptions, 3, "", "codex", 30},
        {with(claude, "access to tmp/ from this project", "acc…"), permission, 2},
        {with(claude, " access to tmp/ from this project", ""), permission, 2, "", "claude", 28},
        {with(claude, " access to tmp/ from this project", ""), permission, 2,
            "option 2 on the screen is \"Yes, and always allow\""},
        {with(boxed, "this project", "any folder "), permission, 2,
            "option 2 on the screen is \"Yes, and always allow access to tmp/ from any folder\"", "claude",
            32},
        {with(claude, "3. No", "3. N…"), permission, 3, "option 3 on the screen is \"N…\""},
        {claude, {"Yes", "Yes, and always allow access to…", "No"}, 2},
        {"❯ 1. Allow\n     everything\n  2. No\n", {"Allow", "No"}, 1},
        {"❯ 1. Allow\n     everything\n  2. No\n", {"Allow", "No"}, 1,
            "option 1 on the screen is \"Allow everything\"", "claude", 20},
        // Another menu, or none.
        {"", permission, 1, gone},
        {" ❯ \n ? for shortcuts\n", permission, 1, gone},
        {claude + "\n❯ \n", permission, 1, gone},
        {"> 1. Yes\n  2. Yes, and\n  3. No\n\n● Working…\n\n❯ Try something\n", permission, 3, gone},
        {with(claude, "❯", " "), permission, 1, gone},
        {with(claude, "  2.", "❯ 2."), permission, 1, gone},
        {with(claude, " ❯ 1. Yes\n", ""), permission, 3, gone},
        {with(claude, "❯", "›"), permission, 1, gone},
        {claudeAsks, permission, 2, "option 2 on the screen is \"SQLite\""},
        {claudeAsks + claude, databases, 1, "option 1 on the screen is \"Yes\""},
        {"  1. PostgreSQL\n  2. SQLite\n" + claude, databases, 2,
            "option 2 on the screen is \"Yes, and always allow access to tmp/ from this project\""},
        {claude, {"Yes", "No"}, 2,
            "option 2 on the screen is \"Yes, and always allow access to tmp/ from this project\""},
        {claude, {"Yes", "No", "Never", "Later"}, 1, "the menu on the screen has 3 options, not 4"},
        {with(claude, "3. No", "3. No, and stop"), permission, 3,
            "option 3 on the screen is \"No, and stop\""},
        {with(claudeAsks, "2. SQLite", "2. [ ] SQLite"), databases, 2,
            "option 2 on the screen is \"[ ] SQLite\""},
        // A digit would go into the text of the marked option.
        {with(with(claudeAsks, "❯ 1", "  1"), "  4.", "❯ 4."), databases, 2,
            "on the screen \"Type something.\" is marked, which was not asked"},
        {with(claude, "1. Yes", "1. Yes, and tell"), permission, 3,
            "on the screen \"Yes, and tell\" is marked, which was not asked"},
    };
    for (const auto& [screen, options, number, refusal, agent, columns] : rows) {
        const auto seen = MenuScreen::look(screen, columns, {agent, options, number});
        EXPECT_EQ(seen.refusal.value_or(""), refusal) << number << " of\n" << screen;
    }
    const auto seen = MenuScreen::look(claude, 120, {"claude", permission, 3});
    EXPECT_EQ(seen.lines, (Lines{"   3. No", " ❯ 1. Yes"})) << "what must still stand there when tmux types";
}

TEST(MenuScreen, onlyOneDigitForAKnownAgentIsHeldAgainstTheScreen) {
    auto job = answerJob({DeliverStep::key("2")});
    EXPECT_FALSE(MenuScreen::askedBy(job)) << "the daemon doesn't tell the options";
    job.menu = permission;
    EXPECT_EQ(MenuScreen::askedBy(job), (MenuScreen::Asked{"claude", permission, 2}));
    job.agent = "grok";
    EXPECT_FALSE(MenuScreen::askedBy(job));
    job.agent = "codex";
    EXPECT_TRUE(MenuScreen::askedBy(job));
    job.steps = {{DeliverStep::key("y")}};
    EXPECT_FALSE(MenuScreen::askedBy(job));
}

} // namespace
} // namespace kelvadrome::test
