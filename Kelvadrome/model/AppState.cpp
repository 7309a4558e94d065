#include "Kelvadrome/model/AppState.h"

#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr std::size_t panelRows = 3;
constexpr double longestSnooze = 7 * 86'400; // that the daemon takes

bool containsLowercased(const std::optional<std::string>& text, const std::string& part) {
    return text && Text::lowercased(*text).contains(part);
}

} // namespace

bool loginItemIsEnabled(const AppState& state) {
    return state.backgroundState && state.backgroundState->status == BackgroundServiceStatus::enabled;
}

bool loginItemIsSilent(const AppState& state) {
    const auto& status = state.supervisorStatus;
    return loginItemIsEnabled(state) && state.connection.state == Connection::State::starting && status &&
           status->mode == DaemonSupervisor::Mode::starting && status->lastError;
}

std::int64_t needsYouCount(const AppState& state) {
    if (state.counts)
        return state.counts->needsYou;
    return std::ranges::count_if(state.cards, InboxLogic::needsYou);
}

std::vector<AgentsStatus::Session> agentRows(const AppState& state) {
    if (state.agents && !state.agents->sessions.empty())
        return state.agents->sessions;
    return InboxLogic::sessionsFromCards(state.cards);
}

std::int64_t agentsWorking(const AppState& state) {
    if (state.counts)
        return state.counts->agentsWorking;
    return std::ranges::count_if(agentRows(state), [](const AgentsStatus::Session& session) {
        return InboxLogic::lamp(session.status, std::nullopt) == InboxLogic::Lamp::working;
    });
}

std::optional<std::string> topicTitle(const AppState& state, const std::optional<std::string>& id) {
    if (!id)
        return std::nullopt;
    const auto found = state.topics.find(*id);
    return found == state.topics.end() ? std::nullopt : std::optional(found->second.title);
}

std::optional<AgentsStatus::Lock> edgeLock(const AppState& state) {
    if (!state.agents)
        return std::nullopt;
    const auto& locks = state.agents->locks;
    const auto found = std::ranges::find_if(
        locks, [](const AgentsStatus::Lock& lock) { return containsLowercased(lock.resource, "edge"); });
    return found == locks.end() ? std::nullopt : std::optional(*found);
}

bool holdsEdge(const AppState& state, const AgentsStatus::Session& session) {
    const auto lock = edgeLock(state);
    if (!lock || !lock->holder)
        return false;
    const auto label = Text::lowercased(session.label.value_or("#"));
    return containsLowercased(lock->holder->handoff, label) || containsLowercased(lock->holder->label, label);
}

std::optional<WallTime> snoozedUntil(const AppState& state, const Card& card, WallTime now) {
    const auto within = [&](WallTime until, double longest) {
        return until >= now && until <= now + seconds(longest);
    };
    const auto told = card.snoozedUntil ? InboxLogic::date(*card.snoozedUntil) : std::nullopt;
    if (told && within(*told, longestSnooze))
        return told;
    const auto later = state.later.find(card.id);
    return later != state.later.end() && within(later->second, snoozeTime) ? std::optional(later->second)
                                                                           : std::nullopt;
}

bool isSnoozed(const AppState& state, const Card& card, WallTime now) {
    return !state.holds.contains(card.id) && snoozedUntil(state, card, now);
}

std::int64_t snoozedCount(const AppState& state, WallTime now) {
    return std::ranges::count_if(state.cards,
        [&](const Card& card) { return InboxLogic::needsYou(card) && isSnoozed(state, card, now); });
}

std::string kdCommand(const AppState& state) {
    return state.health ? state.health->kd : Health().kd;
}

std::vector<Card> panelCards(const AppState& state, WallTime now) {
    // By address, since only the first few of perhaps thousands are copied.
    std::vector<const Card*> shown;
    for (const auto& card : state.cards) {
        if (InboxLogic::needsYou(card) && !isSnoozed(state, card, now))
            shown.push_back(&card);
    }
    std::ranges::stable_sort(
        shown, [](const Card* left, const Card* right) { return InboxLogic::goesBefore(*left, *right); });

    std::vector<const PanelHold*> holds;
    for (const auto& [id, hold] : state.holds)
        holds.push_back(&hold);
    std::ranges::stable_sort(holds, {}, &PanelHold::until);
    for (const auto* hold : holds) {
        if (std::ranges::find(shown, hold->card.id, &Card::id) == shown.end())
            shown.insert(shown.begin(), &hold->card);
    }
    std::vector<Card> cards;
    for (const auto* card : shown) {
        if (cards.size() == panelRows)
            break;
        cards.push_back(*card);
    }
    return cards;
}

} // namespace kelvadrome
