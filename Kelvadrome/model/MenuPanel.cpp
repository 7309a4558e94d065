#include "Kelvadrome/model/MenuPanel.h"

#include "Kelvadrome/model/LocalTime.h"

#include <fmt/format.h>

#include <algorithm>

namespace kelvadrome {

namespace {

using Kind = PanelAction::Kind;

void setBody(MenuPanelContent& panel, const AppState& state, const std::vector<Card>& cards, WallTime now) {
    using Body = MenuPanelContent::Body;
    switch (state.connection.state) {
    case Connection::State::starting:
        panel.body = Body::starting;
        panel.title = "Starting the daemon";
        if (loginItemIsSilent(state)) {
            panel.detail = *state.supervisorStatus->lastError;
            panel.retry = PanelAction{.kind = Kind::retry, .words = "Start it here"};
        }
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
        const bool clear =
            panel.needsYou == 0; // else the header and the footer speak of what waits elsewhere
        panel.title = clear ? "All clear" : "Nothing to answer here now";
        panel.detail =
            clear ? "New questions land here first." : "What waits is snoozed, or stands in the Inbox.";
        return;
    }
    panel.body = Body::rows;
    panel.rows = cardRows(state, cards, now);
}

/// "1 snoozed until 14:05", "2 snoozed, next at 14:05".
std::optional<std::string> snoozedLine(const AppState& state, WallTime now) {
    const auto count = snoozedCount(state, now);
    std::optional<WallTime> first;
    for (const auto& card : state.cards) {
        const auto until = snoozedUntil(state, card, now);
        if (until && InboxLogic::needsYou(card) && isSnoozed(state, card, now))
            first = std::min(first.value_or(*until), *until);
    }
    if (!first)
        return std::nullopt;
    return fmt::format(
        "{} snoozed{} {}", count, count == 1 ? " until" : ", next at", momentWords(*first, now));
}

} // namespace

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

std::optional<std::string> shownError(const AppState& state) {
    const bool ofLostReply = std::ranges::any_of(state.pressed, [&](const auto& entry) {
        return entry.second.known == PressedAnswer::Known::unclear && entry.second.reason == state.panelError;
    });
    return ofLostReply ? std::nullopt : state.panelError;
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
    setBody(panel, state, cards, now);
    panel.pressed = pressedLines(state, panel.rows, now);
    for (const auto& session : sessions) {
        if (panel.agents.size() == MenuPanelContent::maxAgents)
            break;
        panel.agents.push_back(agentLine(state, session));
    }
    panel.error = shownError(state);
    panel.open = {.kind = Kind::openMain, .words = "Open kelvadrome"};
    const auto more = panel.needsYou - static_cast<std::int64_t>(cards.size());
    if (more > 0)
        panel.more = fmt::format("{} more in the Inbox", more);
    panel.snoozed = snoozedLine(state, now);
    return panel;
}

std::optional<std::string> menuBarLabel(const AppState& state) {
    if (state.onboardingActive)
        return "Finish setup";
    const auto count = needsYouCount(state);
    return count > 0 ? std::optional(std::to_string(count)) : std::nullopt;
}

std::optional<double> menuPanelChangesIn(const MenuPanelContent& panel, const AppState& state, WallTime now) {
    return cardRowsChangeIn(panel.rows, state, now);
}

} // namespace kelvadrome
