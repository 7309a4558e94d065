#include "KelvadromeKit/delivery/CrewLabels.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

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

TEST(CrewLabels, onlyATabThatIsOneSessionsBeyondDoubtIsRenamed) {
    const auto count = [](const CrewLabelRow& one) {
        return CrewLabels::plan({one}, hosts, {}, true).size();
    };
    EXPECT_EQ(
        CrewLabels::plan({row()}, hosts, {}, true), (std::vector<CrewLabels::Action>{{"ttys1", "A", "Ada"}}));
    for (const auto* tty : {"ttys2", "ttys3", "ttys4", "ttys9", "ttys"})
        EXPECT_EQ(count(row(tty)), 0u) << tty;
    EXPECT_EQ(count(row(std::nullopt)), 0u);
    EXPECT_EQ(count(row("ttys1", std::nullopt)), 0u);
    auto other = row();
    other.host = "tmux";
    EXPECT_EQ(count(other), 0u);
    other = row();
    other.status = "ended";
    EXPECT_EQ(count(other), 0u);
    EXPECT_TRUE(CrewLabels::plan({row()}, hosts, {}, false).empty());
}

TEST(CrewLabels, aCallsignIsANameAndNothingElse) {
    const std::string longest = "a" + std::string(23, 'b');
    for (const auto& good : std::vector<std::string>{"Ada-7", "O'Neil 2", "Zoë", "Z", longest}) {
        EXPECT_EQ(CrewLabels::plan({row("ttys1", good)}, hosts, {}, true).size(), 1u) << good;
    }
    for (const auto& bad : std::vector<std::string>{"", "7up", " Ada", "Ada\n", "Ada\x1B[A", "A\u202Ed",
             "Ada!", "Ad\u0660", "Zoe\u0308", "A\tb", longest + "b"}) {
        EXPECT_TRUE(CrewLabels::plan({row("ttys1", bad)}, hosts, {}, true).empty()) << bad;
    }
}

TEST(CrewLabels, aNameIsAppliedOnceUntilItChanges) {
    EXPECT_TRUE(CrewLabels::plan({row()}, hosts, {{"A", "Ada"}}, true).empty());
    EXPECT_EQ(CrewLabels::plan({row()}, hosts, {{"A", "Bo"}, {"B", "Ada"}}, true).size(), 1u);
}
