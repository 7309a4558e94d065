#include "Kelvadrome/model/InboxList.h"

#include "Kelvadrome/model/ListRows.h"
#include "Kelvadrome/model/MenuPanel.h"

#include <algorithm>

namespace kelvadrome {

namespace {

bool inScope(const AppState& state, const Card& card) {
    if (state.scope == ScopeFilter::all || state.holds.contains(card.id))
        return true;
    const auto topic = card.topic ? state.topics.find(*card.topic) : state.topics.end();
    return topic != state.topics.end() && topic->second.scope == rawValue(state.scope);
}

std::string textOf(const AppState& state, const Card& card) {
    auto text = card.title + " " + card.body + " " + InboxLogic::agentName(card.agent);
    for (const auto& option : card.options)
        text += " " + option;
    return text + " " + topicTitle(state, card.topic).value_or("");
}

/// 0 needs the user, 1 is open all the same, 2 is to come back later.
int place(const AppState& state, const Card& card, WallTime now) {
    if (isSnoozed(state, card, now))
        return 2;
    return InboxLogic::needsYou(card) ? 0 : 1;
}

} // namespace

InboxList inboxList(const AppState& state, WallTime now, std::string_view filter) {
    InboxList list;
    list.header = InboxLogic::cautionText(needsYouCount(state));
    list.relief = reliefLine(state);
    list.error = shownError(state);
    std::vector<Card> cards;
    for (const auto& card : InboxLogic::ordered(state.cards)) {
        if (!InboxLogic::isLiveState(card.state) || !holdsWords(textOf(state, card), filter))
            continue;
        if (inScope(state, card)) {
            cards.push_back(card);
        } else {
            ++list.elsewhere;
        }
    }
    std::ranges::stable_sort(cards, {}, [&](const Card& card) { return place(state, card, now); });
    for (const auto& [id, hold] : state.holds) {
        if (std::ranges::find(cards, id, &Card::id) == cards.end())
            cards.insert(cards.begin(), hold.card);
    }
    list.rows = cardRows(state, cards, now);
    list.snoozed = static_cast<std::size_t>(
        std::ranges::count_if(cards, [&](const Card& card) { return isSnoozed(state, card, now); }));
    list.pressed = pressedLines(state, list.rows, now);
    list.clear = list.rows.empty() && list.elsewhere == 0 && needsYouCount(state) == 0;
    return list;
}

} // namespace kelvadrome
