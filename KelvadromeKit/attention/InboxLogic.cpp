#include "KelvadromeKit/attention/InboxLogic.h"

#include "KelvadromeKit/support/ISO8601.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <utility>

namespace kelvadrome::InboxLogic {

namespace {

using NameTable = std::map<std::string_view, std::string_view>;

const NameTable agentNames = {
    {"claude", "Claude Code"},
    {"codex", "Codex"},
    {"grok", "Grok"},
    {"gemini", "Gemini CLI"},
    {"antigravity", "Antigravity"},
    {"qwen", "Qwen Code"},
    {"copilot", "Copilot"},
    {"cursor", "Cursor Agent"},
    {"droid", "Droid"},
    {"opencode", "OpenCode"},
    {"amp", "Amp"},
    {"aider", "Aider"},
    {"pi", "Pi"},
    {"omp", "Omp"},
};

const NameTable actionLabels = {
    {"file.document", "File to topic folder"},
    {"file.rename", "Rename files"},
    {"draft.create", "Create drafts"},
    {"mail.mark_read", "Mark read after sent"},
    {"mail.label", "Label mail"},
};

template <std::size_t count>
bool isOneOf(std::string_view word, const std::array<std::string_view, count>& words) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

std::string joinedPieces(std::string_view text, char separator) {
    std::string result;
    for (const auto piece : Text::split(text, separator, Text::EmptyPieces::drop)) {
        if (!result.empty())
            result += ' ';
        result += piece;
    }
    return result;
}

bool isPaymentStop(const Card& card) {
    if (card.stopType && card.stopType->starts_with("payment"))
        return true;
    if (!card.refs)
        return false;
    const auto action = card.refs->find("action_class");
    return action != card.refs->end() && action->second.starts_with("pay");
}

std::string paymentSummary(const Card& card) {
    const auto amount = field("Amount as read", card.body);
    if (!amount)
        return "Payment page reached. The card field stays with you.";
    const bool within = Text::lowercased(card.body).find("within the") != std::string::npos;
    return fmt::format("Payment page reached. {}{}. The card field stays with you.", *amount,
        within ? ", within your limit" : "");
}

std::string batchSummary(const Card& card) {
    static const std::vector<BatchRow> none;
    const auto& rows = card.rows ? *card.rows : none;
    const auto ready = std::count_if(
        rows.begin(), rows.end(), [](const BatchRow& row) { return row.defaultAnswer.has_value(); });
    const bool allReady = static_cast<std::size_t>(ready) == rows.size();
    const auto middle =
        allReady ? std::string("defaults ready") : fmt::format("{} of {} defaults ready", ready, rows.size());
    const bool working = std::any_of(
        rows.begin(), rows.end(), [](const BatchRow& row) { return row.agentState == "working"; });
    return fmt::format("{} questions, {}.{}", rows.size(), middle, working ? " Agent still working." : "");
}

std::optional<std::string> refOf(const Card& card, const std::string& name) {
    if (!card.refs)
        return std::nullopt;
    const auto found = card.refs->find(name);
    return found == card.refs->end() ? std::nullopt : std::optional(found->second);
}

} // namespace

std::string_view rawValue(Annunciator annunciator) {
    switch (annunciator) {
    case Annunciator::automatic:
        return "AUTO";
    case Annunciator::silent:
        return "SILENT";
    case Annunciator::ask:
        break;
    }
    return "ASK";
}

std::string_view rawValue(Lamp lamp) {
    switch (lamp) {
    case Lamp::working:
        return "working";
    case Lamp::needsYou:
        return "needsYou";
    case Lamp::failed:
        return "failed";
    case Lamp::idle:
        break;
    }
    return "idle";
}

bool isNeedsYouKind(std::string_view kind) {
    constexpr std::array<std::string_view, 6> kinds = {
        "stop", "question", "batch", "conflict", "handoff_review", "precedent"};
    return isOneOf(kind, kinds);
}

bool isLiveState(std::string_view state) {
    constexpr std::array<std::string_view, 3> states = {"open", "armed", "held"};
    return isOneOf(state, states);
}

bool needsYou(const Card& card) {
    return isNeedsYouKind(card.kind) && isLiveState(card.state);
}

bool goesBefore(const Card& left, const Card& right) {
    const auto rank = [](const Card& card) { return std::pair(card.risk != "high", !card.blocking); };
    return rank(left) < rank(right);
}

std::vector<Card> ordered(std::vector<Card> cards) {
    std::stable_sort(cards.begin(), cards.end(), goesBefore);
    return cards;
}

std::vector<Card> needingYou(const std::vector<Card>& cards) {
    std::vector<Card> needing;
    std::copy_if(cards.begin(), cards.end(), std::back_inserter(needing), needsYou);
    return ordered(std::move(needing));
}

bool isHighRiskStop(const Card& card) {
    return card.kind == "stop" && card.risk == "high";
}

bool isOnItsWay(const Card& card) {
    return card.state == "held" || card.state == "armed";
}

std::optional<std::string> lastRefusal(const Card& card) {
    return refOf(card, "last_refusal");
}

std::optional<std::string> lastAttempt(const Card& card) {
    return refOf(card, "last_attempt");
}

bool mayHaveBeenTyped(const Card& card) {
    return card.maybeTyped ||
           Text::lowercased(lastRefusal(card).value_or("")).contains("may have been typed");
}

Annunciator annunciator(std::string_view level) {
    if (level == "L1")
        return Annunciator::automatic;
    if (level == "L2")
        return Annunciator::silent;
    return Annunciator::ask;
}

std::string cautionText(std::int64_t count) {
    if (count == 0)
        return "All clear";
    return count == 1 ? "1 needs you" : fmt::format("{} need you", count);
}

std::string notificationBody(std::int64_t highRiskCount) {
    if (highRiskCount == 1)
        return "1 stop needs you. Open to review.";
    return fmt::format("{} stops need you. Open to review.", highRiskCount);
}

std::string agentName(const std::optional<std::string>& agent) {
    if (!agent)
        return "Agent";
    const auto known = agentNames.find(*agent);
    return known != agentNames.end() ? std::string(known->second) : Text::uppercasedFirst(*agent);
}

std::string agentDisplay(const std::string& agent, const std::optional<std::string>& label) {
    auto name = agentName(agent);
    if (!label || label->empty())
        return name;
    if (Text::lowercased(*label).starts_with(Text::lowercased(name)))
        return *label;
    return name + " " + *label;
}

std::string actionLabel(std::string_view action) {
    if (const auto known = actionLabels.find(action); known != actionLabels.end())
        return std::string(known->second);
    return Text::uppercasedFirst(joinedPieces(Text::replaceAll(action, "_", " "), '.'));
}

std::string humanize(std::string_view word) {
    const auto joined = joinedPieces(Text::replaceAll(word, "_", "-"), '-');
    return joined.empty() ? std::string(word) : Text::uppercasedFirst(joined);
}

std::optional<WallTime> date(std::string_view text) {
    return parseISO8601(text);
}

std::string age(std::string_view from, WallTime now) {
    const auto then = date(from);
    if (!then)
        return "";
    const auto passed = static_cast<std::int64_t>((now - *then).count());
    if (passed < 60)
        return "now";
    if (passed < 3600)
        return fmt::format("{} min", passed / 60);
    if (passed < 86400)
        return fmt::format("{} h", passed / 3600);
    return fmt::format("{} d", passed / 86400);
}

std::optional<std::string> field(std::string_view name, std::string_view text) {
    const auto wanted = Text::lowercased(name) + ":";
    for (const auto line : Text::split(text, '\n', Text::EmptyPieces::drop)) {
        const auto trimmed = Text::trimBlanks(line);
        if (!Text::lowercased(trimmed).starts_with(wanted))
            continue;
        return std::string(Text::trimBlanks(Text::dropFirst(trimmed, Text::characterCount(name) + 1)));
    }
    return std::nullopt;
}

std::string summary(const Card& card) {
    if (card.kind == "stop" && isPaymentStop(card))
        return paymentSummary(card);
    if (card.kind == "batch")
        return batchSummary(card);
    return card.title;
}

std::optional<std::string> suggested(const Card& card) {
    if (card.kind != "question" || !card.defaultAnswer || card.defaultAnswer->empty())
        return std::nullopt;
    return card.defaultAnswer;
}

std::optional<std::map<std::string, std::string>> batchDefaults(const Card& card) {
    if (card.kind != "batch" || !card.rows || card.rows->empty())
        return std::nullopt;
    std::map<std::string, std::string> defaults;
    for (const auto& row : *card.rows) {
        if (!row.defaultAnswer)
            return std::nullopt;
        defaults.insert_or_assign(row.questionId, *row.defaultAnswer);
    }
    return defaults;
}

Lamp lamp(std::string_view status, const std::optional<std::string>& detail) {
    constexpr std::array<std::string_view, 5> working = {
        "busy", "working", "running", "editing", "searching"};
    constexpr std::array<std::string_view, 3> waiting = {"waiting_me", "needs_you", "blocked"};
    constexpr std::array<std::string_view, 3> failed = {"failed", "error", "crashed"};
    const auto words = Text::lowercased(detail.value_or(""));
    if (words.find("for you") != std::string::npos || words.find("needs you") != std::string::npos)
        return Lamp::needsYou;
    if (isOneOf(status, working))
        return Lamp::working;
    if (isOneOf(status, waiting))
        return Lamp::needsYou;
    return isOneOf(status, failed) ? Lamp::failed : Lamp::idle;
}

std::string statusWord(
    std::string_view status, bool holdsEdge, bool queued, const std::optional<std::string>& detail) {
    if (detail && !detail->empty())
        return *detail;
    if (holdsEdge)
        return "holding Edge";
    if (queued)
        return "queued";
    if (status == "busy" || status == "working" || status == "running")
        return "working";
    if (status == "waiting")
        return "waiting";
    if (status == "waiting_me" || status == "needs_you")
        return "needs you";
    if (status == "idle")
        return "idle";
    if (status == "ended" || status == "closed")
        return "ended";
    return Text::replaceAll(status, "_", " ");
}

std::vector<AgentsStatus::Session> sessionsFromCards(const std::vector<Card>& cards) {
    std::vector<const Card*> live;
    for (const auto& card : cards) {
        if (isLiveState(card.state) && card.agent)
            live.push_back(&card);
    }
    std::ranges::stable_sort(
        live, [](const Card* left, const Card* right) { return goesBefore(*left, *right); });
    std::vector<AgentsStatus::Session> sessions;
    std::set<std::string> seen;
    for (const auto* const one : live) {
        const auto& card = *one;
        if (!seen.insert(*card.agent + ":" + card.sessionId.value_or("")).second)
            continue;
        AgentsStatus::Session session;
        session.agent = *card.agent;
        session.sessionId = card.sessionId.value_or("");
        session.topic = card.topic;
        session.status = isNeedsYouKind(card.kind) && card.blocking ? "waiting_me" : "idle";
        sessions.push_back(std::move(session));
    }
    return sessions;
}

} // namespace kelvadrome::InboxLogic
