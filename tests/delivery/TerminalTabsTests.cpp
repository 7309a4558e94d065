#include "KelvadromeKit/delivery/CrewLabels.h"
#include "KelvadromeKit/delivery/HostPlan.h"
#include "KelvadromeKit/delivery/LiveScripts.h"
#include "KelvadromeKit/support/Text.h"

#include <gtest/gtest.h>
#include <re2/re2.h>

using namespace kelvadrome;

namespace {

struct Script {
    const char* name;
    std::string_view text;
    int arguments;
};

const Script scripts[] = {{"itermList", LiveScripts::itermList, 0},
    {"terminalList", LiveScripts::terminalList, 0}, {"itermWrite", LiveScripts::itermWrite, 4},
    {"itermRead", LiveScripts::itermRead, 2}, {"itermLabel", LiveScripts::itermLabel, 3},
    {"itermFocus", LiveScripts::itermFocus, 1}, {"terminalFocus", LiveScripts::terminalFocus, 1},
    {"itermOpen", LiveScripts::itermOpen, 1}};

/// Every first group of the pattern in the text, in order.
std::vector<std::string> all(std::string_view text, const char* pattern) {
    std::vector<std::string> found;
    re2::StringPiece rest(text.data(), text.size());
    std::string one;
    while (RE2::FindAndConsume(&rest, pattern, &one))
        found.push_back(one);
    return found;
}

using Words = std::vector<std::string>;

} // namespace

TEST(LiveScripts, eachIsClosedTakesItsArgumentsInOrderAndRunsNoneOfThem) {
    for (const auto& [name, text, arguments] : scripts) {
        SCOPED_TRACE(name);
        Words numbers;
        for (int i = 1; i <= arguments; ++i)
            numbers.push_back(std::to_string(i));
        EXPECT_EQ(all(text, "item (\\d) of argv"), numbers);
        EXPECT_EQ(all(text, "(do shell|run) script"), Words());
        EXPECT_EQ(
            all(text, "(?m)^ *(on run argv|repeat\\b.*|try|tell (?:application id \"[^\"]*\"|s)|if .* then)$")
                .size(),
            all(text, "(?m)^ *(end( \\w+)?)$").size());
        for (const auto& verdict : all(text, "return \"([^\"]*)\""))
            EXPECT_NE(HostPlan::scriptRefusal(verdict), HostPlan::scriptRefusal("?")) << verdict;
        const auto writes = all(text, "(write text[^\\n]*)");
        EXPECT_EQ(!writes.empty(), text == LiveScripts::itermWrite || text == LiveScripts::itermOpen);
        for (const auto& line : writes) // only the one that opens ends a line
            EXPECT_EQ(line.ends_with(" newline NO"), text != LiveScripts::itermOpen) << line;
    }
    // A label without an id would rename whatever stands on that tty.
    EXPECT_EQ(LiveScripts::itermLabel.find("is not \"\""), std::string_view::npos);
}

TEST(LiveScripts, theWriteScriptChecksEverythingBeforeItsOneKey) {
    const auto& write = LiveScripts::itermWrite;
    std::size_t from = 0;
    for (const std::string_view piece : {"return \"missing\"", "return \"ambiguous\"",
             "wantedId is not \"\" and (id of s) is not wantedId", "return \"moved\"",
             "is at shell prompt of s", "return \"shell\"", "variable named \"jobName\"", "j is \"\"",
             "return \"unknown job\"", "j is in {", "return \"shell\"", "write text", "return \"ok\""}) {
        const auto at = write.find(piece, from);
        ASSERT_NE(at, std::string_view::npos) << piece << " is not where it should be";
        from = at + piece.size();
    }
    const auto list = all(write, "j is in \\{([^}]*)\\}");
    ASSERT_EQ(list.size(), 1u);
    const auto names = all(list[0], "\"([^\"]*)\"");
    EXPECT_EQ((std::set<std::string, std::less<>>(names.begin(), names.end())), HostPlan::shells());
}

TEST(LiveScripts, aListKeepsTheSoundLines) {
    const std::string longRef(120, 'r'), longTitle(300, 't');
    const Words sound{"/dev/ttys003\tABC\tmy tab\ttrue", "ttys004\tDEF\t/clear\tfalse",
        "tty9\t1:2\ta\x1B[31m\u202Eb\tunknown", "ttys1\tG",
        "ttys7\t" + longRef + "\t" + longTitle + "\ttrue\tmore"};
    const Words others{"", "ttys12345\tABC\tx\ttrue", "/dev//dev/ttys1\tABC\tx\ttrue", "pts/3\tABC\tx\ttrue",
        "ttys5\t\tx\ttrue", "ttys6\t" + longRef + "r\tx\ttrue"};
    EXPECT_EQ(LiveScripts::parseList(Text::join(others, "\n") + "\n" + Text::join(sound, "\n"), "iterm2"),
        (std::vector<HostSession>{{"iterm2", "ttys003", "ABC", "my tab", true},
            {"iterm2", "ttys004", "DEF", std::nullopt, false}, {"iterm2", "tty9", "1:2", "ab", std::nullopt},
            {"iterm2", "ttys1", "G", std::nullopt, std::nullopt},
            {"iterm2", "ttys7", longRef, longTitle.substr(0, 120), std::nullopt}}));
    EXPECT_EQ((HostSession{"terminal", "ttys1", "4:1", std::nullopt, std::nullopt}.wire()),
        (boost::json::object{{"host", "terminal"}, {"tty", "ttys1"}, {"ref", "4:1"}, {"title", nullptr},
            {"at_shell_prompt", nullptr}}));
}

namespace {

const std::vector<HostSession> hosts{{"iterm2", "ttys1", "A", std::nullopt, std::nullopt},
    {"terminal", "ttys1", "4:1", std::nullopt, std::nullopt},
    {"iterm2", "ttys2", "B", std::nullopt, std::nullopt},
    {"iterm2", "ttys2", "C", std::nullopt, std::nullopt}, {"iterm2", "ttys3", "", std::nullopt, std::nullopt},
    {"terminal", "ttys4", "5:1", std::nullopt, std::nullopt}};

CrewLabelRow row(std::optional<std::string> tty = "ttys1", std::optional<std::string> callsign = "Ada") {
    return {"k", "iterm2", std::move(tty), std::move(callsign), "live"};
}

} // namespace

TEST(CrewLabels, onlyATabThatIsOneSessionsBeyondDoubtIsRenamedAndOnlyToAName) {
    const auto count = [](const CrewLabelRow& one) {
        return CrewLabels::plan({one}, hosts, {}, true).size();
    };
    EXPECT_EQ(
        CrewLabels::plan({row()}, hosts, {}, true), (std::vector<CrewLabels::Action>{{"ttys1", "A", "Ada"}}));
    for (const auto* tty : {"ttys2", "ttys3", "ttys4", "ttys9", "ttys"})
        EXPECT_EQ(count(row(tty)), 0u) << tty;
    EXPECT_EQ(count(row(std::nullopt)), 0u);
    EXPECT_EQ(count(row("ttys1", std::nullopt)), 0u);
    EXPECT_EQ(count({"k", "tmux", "ttys1", "Ada", "live"}), 0u);
    EXPECT_EQ(count({"k", "iterm2", "ttys1", "Ada", "ended"}), 0u);
    EXPECT_TRUE(CrewLabels::plan({row()}, hosts, {}, false).empty());
    EXPECT_TRUE(CrewLabels::plan({row()}, hosts, {{"A", "Ada"}}, true).empty()) << "it has its name";
    EXPECT_EQ(CrewLabels::plan({row()}, hosts, {{"A", "Bo"}}, true).size(), 1u);

    const std::string longest = "a" + std::string(23, 'b');
    for (const auto& good : Words{"Ada-7", "O'Neil 2", "Zoë", "Z", longest})
        EXPECT_EQ(count(row("ttys1", good)), 1u) << good;
    for (const auto& bad : Words{"", "7up", " Ada", "Ada\n", "Ada\x1B[A", "A\u202Ed", "Ada!", "Ad\u0660",
             "Zoe\u0308", longest + "b"})
        EXPECT_EQ(count(row("ttys1", bad)), 0u) << bad;
}
