#pragma once

#include "Kelvadrome/model/AppState.h"

#include <string>
#include <utility>
#include <vector>

namespace kelvadrome::test {

/// When the tests of pure functions take place.
constexpr WallTime now = wallTime(1'800'000'000); // 2027-01-15T08:00:00Z

/// Opened five minutes before `now`; its title is its id.
inline Card card(
    const std::string& id, const std::string& kind = "question", const std::string& risk = "low") {
    Card card;
    card.id = card.title = id;
    card.version = 3;
    card.kind = kind;
    card.risk = risk;
    card.openedAt = "2027-01-15T07:55:00Z";
    return card;
}

inline AgentsStatus::Session session(
    const std::string& agent, const std::string& id, const std::string& status) {
    AgentsStatus::Session session;
    session.agent = agent;
    session.sessionId = id;
    session.status = status;
    return session;
}

/// A connected application with these cards.
inline AppState ready(std::vector<Card> cards = {}) {
    AppState state;
    state.connection = Connection::ready();
    state.cards = std::move(cards);
    return state;
}

inline PanelHold holdOf(const Card& card, double left) {
    return {card, "Yes", now + seconds(left), 2.0, false};
}

} // namespace kelvadrome::test
