#pragma once

#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/wire/AgentsStatus.h"
#include "KelvadromeKit/wire/Card.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What needs the user, in which order and in which words. Pure; callable from any thread. Panel, strip,
/// badge, notifications and command bar all take their order and words from here, which is why they agree.
namespace kelvadrome::InboxLogic {

enum class Annunciator { ask, automatic, silent };
std::string_view rawValue(Annunciator annunciator); // "ASK", "AUTO", "SILENT"

enum class Lamp { working, needsYou, idle, failed };
std::string_view rawValue(Lamp lamp); // the enumerator's name

/// Whether a card's kind is one that asks the user.
bool isNeedsYouKind(std::string_view kind);
/// Whether a card's state is one in which it still stands.
bool isLiveState(std::string_view state);

bool needsYou(const Card& card);
/// High risk first, then blocking; of two that tie neither goes before the other.
bool goesBefore(const Card& left, const Card& right);
/// By `goesBefore`, then in the daemon's order.
std::vector<Card> ordered(std::vector<Card> cards);
/// `ordered` of those that need the user.
std::vector<Card> needingYou(const std::vector<Card>& cards);
bool isHighRiskStop(const Card& card);
/// Whether an answer to it is on hold or on its way, so that it takes no other.
bool isOnItsWay(const Card& card);
/// Why the last answer didn't reach the agent.
std::optional<std::string> lastRefusal(const Card& card);
/// That a program of the very agent tried to answer the card, in the daemon's words.
std::optional<std::string> lastAttempt(const Card& card);
/// Whether keys of an answer that was not delivered may stand in the agent's terminal. Then no answer is the
/// one to press without looking.
bool mayHaveBeenTyped(const Card& card);

Annunciator annunciator(std::string_view level);
std::string cautionText(std::int64_t count);
/// Names no topic, amount or person: it shows on locked screens.
std::string notificationBody(std::int64_t highRiskCount);

std::string agentName(const std::optional<std::string>& agent);
std::string agentDisplay(const std::string& agent, const std::optional<std::string>& label);
std::string actionLabel(std::string_view action);
std::string humanize(std::string_view word);

std::optional<WallTime> date(std::string_view text);
/// "now", "5 min", "3 h" or "2 d"; empty when `from` can't be parsed.
std::string age(std::string_view from, WallTime now);
/// The rest of the first line of `text` that begins with the name and a colon, in any case.
std::optional<std::string> field(std::string_view name, std::string_view text);

/// The one line that stands for a card in the panel.
std::string summary(const Card& card);
std::optional<std::string> suggested(const Card& card);
/// By question id; absent unless every question of a batch has a default.
std::optional<std::map<std::string, std::string>> batchDefaults(const Card& card);

Lamp lamp(std::string_view status, const std::optional<std::string>& detail);
std::string statusWord(
    std::string_view status, bool holdsEdge, bool queued, const std::optional<std::string>& detail);
/// Agent rows for a daemon that reports no sessions: one a session, with the status of its most urgent card.
std::vector<AgentsStatus::Session> sessionsFromCards(const std::vector<Card>& cards);

} // namespace kelvadrome::InboxLogic
