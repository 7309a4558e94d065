#include "Kelvadrome/model/MenuPanel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kelvadrome {

namespace {

constexpr double countdownStep = 0.25;

using Kind = PanelAction::Kind;
using Session = AgentsStatus::Session;

std::string reliefLine(const AppState& state) {
    if (state.counts && state.counts->answeredByRulesToday >= 1) {
        return fmt::format("{} answered by your rules today", state.counts->answeredByRulesToday);
    }
    const auto working = agentsWorking(state);
    if (working == 1)
        return "1 agent working";
    if (working > 1)
        return fmt::format("{} agents working", working);
    return needsYouCount(state) == 0 ? "Nothing waits for you." : "High risk first";
}

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

PanelCard cardRow(const AppState& state, const Card& card, const Session* session, WallTime now) {
    return {.card = card,
        .agent = agentOf(card, session),
        .topic = topicTitle(state, card.topic),
        .age = InboxLogic::age(card.openedAt, now),
        .summary = InboxLogic::summary(card),
        .highRisk = card.risk == "high",
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

AgentLine agentLine(const AppState& state, const Session& session) {
    AgentLine line{.lamp = InboxLogic::lamp(session.status, session.detail),
        .name = InboxLogic::agentDisplay(session.agent, session.label)};
    const auto topic = session.topicTitle ? session.topicTitle : topicTitle(state, session.topic);
    if (line.lamp == InboxLogic::Lamp::working && topic) {
        line.words = "Working on " + *topic;
    } else if (session.detail && !session.detail->empty()) {
        line.words = *session.detail;
    } else if (holdsEdge(state, session)) {
        line.words = "Holding Edge";
    } else {
        line.words = InboxLogic::statusWord(session.status, false, false, std::nullopt);
        if (topic)
            line.words += ", " + *topic;
    }
    return line;
}

void setBody(MenuPanelContent& panel, const AppState& state, const std::vector<Card>& cards,
    const std::vector<Session>& sessions, WallTime now) {
    using Body = MenuPanelContent::Body;
    switch (state.connection.state) {
    case Connection::State::starting:
        panel.body = Body::starting;
        panel.title = "Starting the daemon";
        return;
    case Connection::State::failed:
        panel.body = Body::failed;
        panel.title = "kelvadrome is not running.";
        panel.detail = state.connection.message;
        panel.retry = PanelAction{.kind = Kind::retry, .words = "Try again"};
        return;
    case Connection::State::ready:
        break;
    }
    if (cards.empty()) {
        panel.body = Body::clear;
        panel.title = "All clear";
        panel.detail = "New questions land here first.";
        return;
    }
    panel.body = Body::rows;
    for (const auto& card : cards) {
        const auto hold = state.holds.find(card.id);
        if (hold != state.holds.end()) {
            panel.rows.emplace_back(
                holdRow(state, hold->second, sessionOf(hold->second.card, sessions), now));
        } else {
            panel.rows.emplace_back(cardRow(state, card, sessionOf(card, sessions), now));
        }
    }
}

} // namespace

const Card& cardOf(const PanelRow& row) {
    return std::visit([](const auto& r) -> const Card& { return r.card; }, row);
}

MenuPanelContent menuPanel(const AppState& state, WallTime now) {
    const auto cards = panelCards(state, now);
    const auto sessions = agentRows(state);
    MenuPanelContent panel;
    panel.needsYou = needsYouCount(state);
    panel.header = InboxLogic::cautionText(panel.needsYou);
    panel.relief = reliefLine(state);
    if (state.onboardingActive) {
        panel.setup =
            PanelLine{"Finish setup", "3 short steps. Nothing installs or changes before you press.",
                {.kind = Kind::finishSetup, .words = "Finish setup"}};
    }
    if (state.backgroundState && state.backgroundState->needsApproval()) {
        const std::string words = "Allow kelvadrome in Login Items to keep it running when closed";
        panel.background = PanelLine{words, {}, {.kind = Kind::openLoginItems, .words = words}};
    }
    setBody(panel, state, cards, sessions, now);
    for (const auto& session : sessions) {
        if (panel.agents.size() == MenuPanelContent::maxAgents)
            break;
        panel.agents.push_back(agentLine(state, session));
    }
    panel.error = state.panelError;
    panel.open = {.kind = Kind::openMain, .words = "Open kelvadrome"};
    const auto more = panel.needsYou - static_cast<std::int64_t>(cards.size());
    if (more > 0)
        panel.more = fmt::format("{} more in the Inbox", more);
    return panel;
}

std::optional<std::string> menuBarLabel(const AppState& state) {
    if (state.onboardingActive)
        return "Finish setup";
    const auto count = needsYouCount(state);
    return count > 0 ? std::optional(std::to_string(count)) : std::nullopt;
}

namespace {

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

std::optional<double> menuPanelChangesIn(const MenuPanelContent& panel, const AppState& state, WallTime now) {
    std::optional<double> soonest;
    const auto at = [&](std::optional<double> wait) {
        if (wait)
            soonest = std::min(soonest.value_or(*wait), std::max(*wait, 0.0));
    };
    for (const auto& [id, until] : state.later) {
        if (until >= now)
            at((until - now).count() + 0.001); // hidden at that very moment still
    }
    for (const auto& row : panel.rows) {
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
