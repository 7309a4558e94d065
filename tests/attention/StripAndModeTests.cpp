#include "KelvadromeKit/attention/AgentStrip.h"
#include "KelvadromeKit/attention/RevealPolicy.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

TEST(AgentStrip, urgentLampsStandFirstAndTheEndedAreGone) {
    const auto session = [](std::string id, std::string status, std::optional<std::string> detail) {
        AgentsStatus::Session made;
        made.agent = "claude";
        made.sessionId = std::move(id);
        made.status = std::move(status);
        made.detail = std::move(detail);
        return made;
    };
    auto named = session("5", "idle", "waits for you");
    named.label = "Review";
    const AgentStrip strip({session("1", "idle", "Waits for you"), session("2", "waiting", std::nullopt),
                               session("3", "ended", "waits for you"), session("4", "idle", "holding Edge"),
                               named, session("6", "idle", "queued for Edge")},
        2);
    std::vector<std::string> order;
    for (const auto& item : strip.items)
        order.push_back(item.id);
    EXPECT_EQ(order, (std::vector<std::string>{"claude:5", "claude:4", "claude:2", "claude:6", "claude:1"}));
    EXPECT_EQ(strip.items[0].label, "Review");
    EXPECT_EQ(strip.headline(), "2 need you");
}

TEST(RevealPolicy, onlyPlainAbsolutePathsPass) {
    EXPECT_EQ(RevealPolicy::allowed("/tmp/a/../b.txt"), "/tmp/b.txt");
    EXPECT_EQ(RevealPolicy::allowed("/../.."), "/");
    const std::string longest = "/" + std::string(1023, 'a');
    EXPECT_EQ(RevealPolicy::allowed(longest), longest);
    for (const std::string& refused : {std::string("relative/path"), std::string(), longest + "a",
             std::string("/a\0b", 4), std::string("/Applications/Mail.app/Contents/x.txt"),
             std::string("/x/NOTES.APP"), std::string("/x/run.command")}) {
        EXPECT_FALSE(RevealPolicy::allowed(refused)) << refused;
    }
    // A bundle that ".." leaves again is not in the path that is revealed.
    EXPECT_EQ(RevealPolicy::allowed("/x/A.app/../b"), "/x/b");
}
