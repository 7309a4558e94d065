#include "Kelvadrome/model/CardRows.h"

#include "KelvadromeKit/attention/InboxLogic.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kelvadrome {

namespace {

constexpr double countdownStep = 0.25;

using Kind = PanelAction::Kind;
using Session = AgentsStatus::Session;

/// The session that opened a card, when the daemon reports it.
const Session* sessionOf(const Card& card, const std::vector<Session>& sessions) {
    if (!card.agent || !card.sessionId)
        return nullptr;
    const auto found = std::ranges::find_if(
        sessions, [&](const Session& s) { return s.agent == *card.agent && s.sessionId == *card.sessionId; });
    return found == sessions.end() ? nullptr : &*found;
}

std::string agentOf(const Card& card, const Session* session) {
    if (session)
        return InboxLogic::agentDisplay(session->agent, session->label);
    return InboxLogic::agentName(card.agent);
}

std::optional<std::string> refusalOf(const Card& card) {
    if (!card.refs)
        return std::nullopt;
    const auto found = card.refs->find("last_refusal");
    return found == card.refs->end() ? std::nullopt : std::optional(found->second);
}

std::vector<PanelAction> actionsOf(const Card& card, bool holdsEdgeBrowser) {
    std::vector<PanelAction> actions;
    if (card.risk == "high") {
        actions.push_back({.kind = Kind::review, .words = "Review in kelvadrome"});
        if (card.kind == "stop" && holdsEdgeBrowser) {
            actions.push_back({.kind = Kind::bringEdgeToFront, .words = "Bring Edge to front"});
        }
    } else if (auto suggested = InboxLogic::suggested(card)) {
        actions.push_back({.kind = Kind::answer,
            .words = *suggested,
            .note = "Suggested. Holds 2 s so you can undo.",
            .answer = *suggested});
    } else if (const auto defaults = InboxLogic::batchDefaults(card)) {
        actions.push_back(
            {.kind = Kind::acceptDefaults, .words = fmt::format("Accept {} defaults", defaults->size())});
    }
    actions.push_back({.kind = Kind::snooze, .words = "Snooze"});
    return actions;
}

std::optional<WallTime> laterOf(const AppState& state, const Card& card, WallTime now) {
    const auto later = state.later.find(card.id);
    return later != state.later.end() && later->second >= now ? std::optional(later->second) : std::nullopt;
}

PanelCard cardRow(const AppState& state, const Card& card, const Session* session, WallTime now) {
    return {.card = card,
        .agent = agentOf(card, session),
        .topic = topicTitle(state, card.topic),
        .age = InboxLogic::age(card.openedAt, now),
        .summary = InboxLogic::summary(card),
        .refused = refusalOf(card),
        .highRisk = card.risk == "high",
        .later = laterOf(state, card, now),
        .actions = actionsOf(card, session && holdsEdge(state, *session))};
}

HoldRow holdRow(const AppState& state, const PanelHold& hold, const Session* session, WallTime now) {
    HoldRow row{.card = hold.card,
        .agent = agentOf(hold.card, session),
        .topic = topicTitle(state, hold.card.topic),
        .label = hold.label,
        .committed = hold.committed,
        .duration = hold.duration};
    if (hold.committed) {
        row.words = hold.label + ". Sent to " + InboxLogic::agentName(hold.card.agent);
    } else {
        row.words = "Sending in a moment. Undo.";
        row.left = std::clamp((hold.until - now).count(), 0.0, std::max(0.0, hold.duration));
        row.undo = PanelAction{.kind = Kind::undo, .words = "Undo"};
    }
    return row;
}

/// Until `InboxLogic::age` gives other words.
std::optional<double> ageChangesIn(const std::string& openedAt, WallTime now) {
    const auto opened = InboxLogic::date(openedAt);
    if (!opened)
        return std::nullopt;
    const double age = (now - *opened).count();
    const double step = age < 3600 ? 60 : age < 86'400 ? 3600 : 86'400;
    return age < 0 ? 60 - age : step - std::fmod(age, step);
}

} // namespace

const Card& cardOf(const PanelRow& row) {
    return std::visit([](const auto& r) -> const Card& { return r.card; }, row);
}

std::vector<PanelRow> cardRows(const AppState& state, const std::vector<Card>& cards, WallTime now) {
    const auto sessions = agentRows(state);
    std::vector<PanelRow> rows;
    for (const auto& card : cards) {
        const auto hold = state.holds.find(card.id);
        if (hold != state.holds.end()) {
            rows.emplace_back(holdRow(state, hold->second, sessionOf(hold->second.card, sessions), now));
        } else {
            rows.emplace_back(cardRow(state, card, sessionOf(card, sessions), now));
        }
    }
    return rows;
}

std::optional<double> cardRowsChangeIn(
    const std::vector<PanelRow>& rows, const AppState& state, WallTime now) {
    std::optional<double> soonest;
    const auto at = [&](std::optional<double> wait) {
        if (wait)
            soonest = std::min(soonest.value_or(*wait), std::max(*wait, 0.0));
    };
    for (const auto& [id, until] : state.later) {
        if (until >= now)
            at((until - now).count() + 0.001); // hidden at that very moment still
    }
    for (const auto& row : rows) {
        if (const auto* hold = std::get_if<HoldRow>(&row)) {
            if (hold->left > 0)
                at(countdownStep);
        } else {
            at(ageChangesIn(cardOf(row).openedAt, now));
        }
    }
    return soonest;
}

} // namespace kelvadrome
