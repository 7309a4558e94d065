#include "KelvadromeKit/delivery/TrustScreen.h"
#include "KelvadromeKit/support/Text.h"

#include "tests/delivery/Jobs.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

namespace {

const std::string folder = "/Users/me/p";
const std::string home = "/Users/me";

/// The question as Claude draws it, line by line, so that a test can spoil one.
struct Screen {
    std::vector<std::string> above{"$ claude", ""};
    std::string heading = " Accessing workspace:";
    std::vector<std::string> path{"", " /Users/me/p", ""};
    std::vector<std::string> question{" Quick safety check: Is this a project you created or one you trust?",
        "", " Claude Code'll be able to read, edit, and execute files here.", "", " Security guide", ""};
    std::string exit = " ❯ 1. No, exit";
    std::string trust = "   2. Yes, I trust this folder";
    std::vector<std::string> footer{"", " Enter to confirm · Esc to cancel", "", ""};

    std::string text() const {
        std::vector<std::string> lines = above;
        lines.push_back(heading);
        lines.insert(lines.end(), path.begin(), path.end());
        lines.insert(lines.end(), question.begin(), question.end());
        lines.insert(lines.end(), {exit, trust});
        lines.insert(lines.end(), footer.begin(), footer.end());
        return Text::join(lines, "\n");
    }
    std::string selected(std::optional<std::string> at = folder) const {
        const auto match = TrustScreen::match(text(), at, home);
        return match ? match->selected : "none";
    }
};

template <class Spoil>
std::string selectedAfter(Spoil spoil) {
    Screen screen;
    spoil(screen);
    return screen.selected();
}

} // namespace

TEST(TrustScreen, theSelectionIsRead) {
    EXPECT_EQ(Screen().selected(), "exit");
    const auto moved = [](Screen& s) {
        s.exit = "   1. No, exit", s.trust = " ❯ 2. Yes, I trust this folder";
    };
    EXPECT_EQ(selectedAfter(moved), "trust");
    EXPECT_EQ(selectedAfter([](Screen& s) { s.exit = "> No, exit\r"; }), "exit");
    EXPECT_EQ(selectedAfter([](Screen& s) { s.above.assign(200, "noise"); }), "exit");
    const auto crlf = Text::replaceAll(Screen().text(), "\n", "\r\n");
    EXPECT_TRUE(TrustScreen::match(crlf, folder, home));
}

TEST(TrustScreen, anyDoubtIsNoMatch) {
    using Spoil = void (*)(Screen&);
    const std::pair<const char*, Spoil> rows[] = {
        {"both marked", [](Screen& s) { s.trust = " ❯ 2. Yes, I trust this folder"; }},
        {"none marked", [](Screen& s) { s.exit = "   1. No, exit"; }},
        {"other option", [](Screen& s) { s.exit = " ❯ 1. No, exit now"; }},
        {"other case", [](Screen& s) { s.trust = "   2. Yes, I Trust this folder"; }},
        {"other order", [](Screen& s) { std::swap(s.exit, s.trust); }},
        {"a third option", [](Screen& s) { s.footer.insert(s.footer.begin(), "   3. Maybe"); }},
        {"no Enter", [](Screen& s) { s.footer[1] = " Esc to cancel"; }},
        {"no Esc", [](Screen& s) { s.footer[1] = " Enter to confirm"; }},
        {"answered", [](Screen& s) { s.footer.push_back("$ "), s.footer.push_back("$ ls"); }},
        {"no question", [](Screen& s) { s.question[0] = " Quick check"; }},
        {"no heading", [](Screen& s) { s.heading = " Workspace:"; }},
        {"longer heading", [](Screen& s) { s.heading = " Accessing workspace: x"; }},
        {"heading below", [](Screen& s) { s.heading = "", s.question.push_back(" Accessing workspace:"); }},
        {"no path", [](Screen& s) { s.path = {""}; }},
        {"other path", [](Screen& s) { s.path = {" /Users/me/q"}; }},
        {"deeper path", [](Screen& s) { s.path = {" /Users/me/p/x"}; }},
        {"other case of path", [](Screen& s) { s.path = {" /users/me/p"}; }},
        {"blank inside the path", [](Screen& s) { s.path = {" /Users/me /p"}; }},
        {"more than the path",
            [](Screen& s) {
                s.path = {" /Users/me/p", " and more"};
            }},
        {"too far up", [](Screen& s) { s.question.insert(s.question.end(), 10, "text"); }},
    };
    for (const auto& [what, spoil] : rows)
        EXPECT_EQ(selectedAfter(spoil), "none") << what;
    EXPECT_FALSE(TrustScreen::match("", folder, home));
    EXPECT_FALSE(
        TrustScreen::match("No, exit\nYes, I trust this folder\nEnter to confirm Esc to cancel", {}, {}));
}

TEST(TrustScreen, theFolderMayBeWrappedOrWrittenFromHome) {
    EXPECT_EQ(selectedAfter([](Screen& s) { s.path = {"  ~/p  "}; }), "exit");
    EXPECT_EQ(selectedAfter([](Screen& s) { s.path = {" /Users/", " me/p"}; }), "exit");
    EXPECT_EQ(selectedAfter([](Screen& s) { s.path = {" ~", "/", "p"}; }), "exit");

    Screen screen;
    screen.path = {" ~"};
    EXPECT_EQ(screen.selected(home), "exit");
    screen.path = {" ~2/p"};
    EXPECT_EQ(screen.selected("/Users/me2/p"), "none") << "home ends at a slash";
    screen.path = {" /Users/me/my", " project"};
    EXPECT_EQ(screen.selected("/Users/me/my project"), "exit");
    screen.path = {" ~/p"};
    EXPECT_FALSE(TrustScreen::match(screen.text(), folder, std::nullopt));
    screen.path = {};
    screen.heading = "";
    EXPECT_EQ(screen.selected(std::nullopt), "exit") << "no folder, no test";
}

TEST(TrustScreen, theWindowEndsTwelveLinesUp) {
    Screen screen;
    screen.question = {" Quick safety check"};
    screen.question.insert(screen.question.end(), 11, "text");
    EXPECT_EQ(screen.selected(std::nullopt), "exit");
    EXPECT_EQ(screen.selected(), "none") << "its heading is outside";
    screen.question.push_back("text");
    EXPECT_EQ(screen.selected(std::nullopt), "none");
}

TEST(TrustScreen, aLineIsTakenApart) {
    EXPECT_TRUE(TrustScreen::marked("  ❯ x"));
    EXPECT_TRUE(TrustScreen::marked("> x"));
    EXPECT_FALSE(TrustScreen::marked("❯x"));
    EXPECT_FALSE(TrustScreen::marked("x > y"));
    EXPECT_FALSE(TrustScreen::marked("   "));
    EXPECT_EQ(TrustScreen::body("  ❯ 2. Yes "), "Yes");
    EXPECT_EQ(TrustScreen::body(">   1. No"), "No");
    EXPECT_EQ(TrustScreen::body("3. No"), "3. No");
    EXPECT_EQ(TrustScreen::body(""), "");
    EXPECT_EQ(TrustScreen::squash(" a\tb\u00A0c\n d"), "abcd");
}

TEST(TrustScreen, aMatchNeedsTheWordsOfTheQuestionAtTheEnd) {
    std::mt19937 random(3);
    const std::string pieces[] = {"Accessing workspace:\n", "/Users/me/p\n", "~/p\n", "Quick safety check\n",
        "❯ ", "> ", "1. ", "No, exit\n", "Yes, I trust this folder\n", "Enter to confirm · Esc to cancel",
        "\n", " ", "\r", "\xFF", "noise\n"};
    const std::string tail = "❯ No, exit\n2. Yes, I trust this folder\nEnter to confirm · Esc to cancel\n";
    int matches = 0;
    for (int round = 0; round < 30000; ++round) {
        const auto front = test::randomText(random, pieces, 9);
        const auto screen = round % 2 ? front : front + tail;
        const auto match = TrustScreen::match(screen, folder, home);
        if (!match)
            continue;
        ++matches;
        EXPECT_TRUE(match->selected == "exit" || match->selected == "trust");
        EXPECT_LT(screen.find("Accessing workspace:"), screen.rfind("Quick safety check")) << screen;
        EXPECT_LT(screen.rfind("No, exit"), screen.rfind("Esc to cancel")) << screen;
    }
    EXPECT_GT(matches, 0);
}
