// Made from design/tokens.json by scripts/make-design.mjs; change it there.
#pragma once

#include <string_view>

/// The words and keys that every surface shares.
namespace kelvadrome::DesignWords {

/// What can be done with a card, and the key for it. The first option has the key of `option`, the ninth "9".
struct Action {
    std::string_view word;
    std::string_view key;
};

namespace action {
inline constexpr Action option{"Choose an option", "1"};
inline constexpr Action accept{"Accept what is suggested", "a"};
inline constexpr Action write{"Write your own answer", "t"};
inline constexpr Action undo{"Undo", "u"};
inline constexpr Action snooze{"Snooze", "z"};
inline constexpr Action wake{"Wake", "z"};
inline constexpr Action dismiss{"Dismiss", "x"};
inline constexpr Action search{"Search", "/"};
inline constexpr Action help{"Keyboard", "?"};
} // namespace action

namespace card {
inline constexpr std::string_view highRisk = "High risk";
inline constexpr std::string_view mediumRisk = "Medium risk";
inline constexpr std::string_view highRiskMark = "!";
inline constexpr std::string_view suggested = "Suggested";
inline constexpr std::string_view ownAnswer = "Your own answer";
inline constexpr std::string_view send = "Send";
inline constexpr std::string_view review = "Review before it is sent";
inline constexpr std::string_view dismissAsks = "Dismiss without an answer?";
inline constexpr std::string_view keep = "Keep";
inline constexpr std::string_view notDelivered = "Your answer was not delivered";
inline constexpr std::string_view lookFirst = "Look at its terminal before you answer again";
inline constexpr std::string_view unknown =
    "No answer from the daemon yet: it may or may not have been taken. Your words stay here.";
} // namespace card

namespace state {
inline constexpr std::string_view open = "Open";
inline constexpr std::string_view held = "On hold";
inline constexpr std::string_view armed = "On its way";
inline constexpr std::string_view gone = "Its agent has ended";
inline constexpr std::string_view snoozed = "Snoozed";
inline constexpr std::string_view closed = "Closed";
} // namespace state

namespace outcome {
inline constexpr std::string_view answered = "Answered";
inline constexpr std::string_view withdrawn = "Taken back by the agent";
inline constexpr std::string_view dismissed = "Dismissed without an answer";
inline constexpr std::string_view wentOn = "The agent went on";
} // namespace outcome

namespace lamp {
inline constexpr std::string_view needsYou = "Needs you";
inline constexpr std::string_view working = "Working";
inline constexpr std::string_view waiting = "Waiting";
inline constexpr std::string_view failed = "Failed";
inline constexpr std::string_view idle = "Idle";
inline constexpr std::string_view ended = "Ended";
} // namespace lamp

namespace title {
inline constexpr std::string_view inbox = "Inbox";
inline constexpr std::string_view topics = "Topics";
inline constexpr std::string_view handoffs = "Handoffs";
inline constexpr std::string_view skills = "Skills";
inline constexpr std::string_view receipts = "Receipts";
inline constexpr std::string_view agents = "Agents";
inline constexpr std::string_view autopilot = "Autopilot";
inline constexpr std::string_view search = "Search";
inline constexpr std::string_view snoozed = "Snoozed";
} // namespace title

} // namespace kelvadrome::DesignWords
