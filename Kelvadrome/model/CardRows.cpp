#include "Kelvadrome/model/CardRows.h"

#include "Kelvadrome/model/AgentLines.h"
#include "Kelvadrome/model/LocalTime.h"
#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kelvadrome {

namespace {

constexpr double countdownStep = 0.25;
constexpr double patience = 1.0; // seconds after the undo window, for a reply that takes milliseconds
constexpr std::size_t openingLines = 4;
constexpr std::size_t openingLength = 600; // characters
constexpr const char* unclear = "No answer from the daemon yet: it may or may not have been taken.";

using Kind = PanelAction::Kind;
using Session = AgentsStatus::Session;

std::string agentOf(const Card& card, const Session* session) {
    if (session)
        return InboxLogic::agentDisplay(session->agent, session->label);
    return InboxLogic::agentName(card.agent);
}

const PressedAnswer* pressedOf(const AppState& state, const std::string& card) {
    const auto found = state.pressed.find(card);
    return found == state.pressed.end() ? nullptr : &found->second;
}

bool isOverdue(const PanelHold& hold, const PressedAnswer* pressed, WallTime now) {
    return !hold.committed && pressed && pressed->known == PressedAnswer::Known::sending &&
           now >= hold.until + seconds(patience);
}

/// Why the last answer was not delivered: the refusal of this very press, else what the card itself says.
std::optional<std::string> refusalOf(const Card& card, const PressedAnswer* pressed) {
    if (pressed && pressed->known == PressedAnswer::Known::refused)
        return pressed->reason;
    return InboxLogic::lastRefusal(card);
}

/// What is known of an answer that is on its way, or may be; empty when the card waits for one.
std::string wayOf(const Card& card, const PressedAnswer* pressed) {
    const auto to = InboxLogic::agentName(card.agent);
    using Known = PressedAnswer::Known;
    if (pressed && (pressed->known == Known::unclear || pressed->known == Known::sending))
        return inQuotes(pressed->label) + ": " + unclear;
    if (pressed && pressed->known == Known::taken)
        return inQuotes(pressed->label) + " is on its way to " + to + ".";
    if (card.state == "held")
        return "An answer is on hold for " + to + ".";
    return InboxLogic::isOnItsWay(card) ? "An answer is on its way to " + to + "." : std::string();
}

/// A line as it is safe to show: runs of blanks are one, what controls the screen or the order of the
/// characters is U+FFFD.
std::string readable(std::string_view line) {
    std::u32string safe;
    for (const char32_t c : Text::scalars(line)) {
        const bool controls =
            c < 32 || (c >= 127 && c <= 159) || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
        if (Text::isWhitespace(c)) {
            if (!safe.empty() && safe.back() != U' ')
                safe += U' ';
        } else {
            safe += controls ? U'\uFFFD' : c;
        }
    }
    if (safe.ends_with(U' '))
        safe.pop_back();
    return Text::fromScalars(safe);
}

void appendSuggestion(std::vector<PanelAction>& actions, const Card& card) {
    if (InboxLogic::mayHaveBeenTyped(card))
        return; // the user is to look at the terminal first
    if (auto suggested = InboxLogic::suggested(card)) {
        actions.push_back({.kind = Kind::answer,
            .words = *suggested,
            .note = "Suggested. Holds 2 s so you can undo.",
            .answer = *suggested});
    } else if (const auto defaults = InboxLogic::batchDefaults(card)) {
        actions.push_back(
            {.kind = Kind::acceptDefaults, .words = fmt::format("Accept {} defaults", defaults->size())});
    }
}

/// An answer under way can be taken back while it is on hold; nothing else is offered beside it, not even to
/// put the card out of sight.
std::vector<PanelAction> actionsOf(const PanelCard& row, bool holdsEdgeBrowser) {
    const auto& card = row.card;
    std::vector<PanelAction> actions;
    if (!row.way.empty()) {
        if (card.state == "held")
            actions.push_back({.kind = Kind::undo, .words = "Undo"});
        return actions;
    }
    if (row.highRisk) {
        actions.push_back({.kind = Kind::review, .words = "Review in kelvadrome"});
        if (card.kind == "stop" && holdsEdgeBrowser) {
            actions.push_back({.kind = Kind::bringEdgeToFront, .words = "Bring Edge to front"});
        }
    } else if (!row.answerable) {
        actions.push_back({.kind = Kind::review, .words = "Review in kelvadrome"});
    } else {
        appendSuggestion(actions, card);
    }
    if (row.later) {
        actions.push_back({.kind = Kind::wake, .words = "Wake"});
    } else {
        actions.push_back({.kind = Kind::snooze, .words = "Snooze"});
    }
    actions.push_back({.kind = Kind::dismiss, .words = "Dismiss…"});
    return actions;
}

PanelCard cardRow(const AppState& state, const Card& card, const Session* session, WallTime now) {
    const auto* const pressed = pressedOf(state, card.id);
    PanelCard row{.card = card,
        .agent = agentOf(card, session),
        .place = session ? placeOf(*session, topicTitle(state, card.topic)) : std::string(),
        .topic = topicTitle(state, card.topic),
        .age = InboxLogic::age(card.openedAt, now),
        .summary = InboxLogic::summary(card),
        .opening = openingOf(card),
        .refused = refusalOf(card, pressed),
        .way = wayOf(card, pressed),
        .highRisk = card.risk == "high",
        .answerable = card.answerable,
        .later = snoozedUntil(state, card, now)};
    if (row.later)
        row.snoozed = "Snoozed until " + momentWords(*row.later, now);
    row.actions = actionsOf(row, session && holdsEdge(state, *session));
    return row;
}

HoldRow holdRow(const AppState& state, const PanelHold& hold, const Session* session, WallTime now) {
    HoldRow row{.card = hold.card,
        .agent = agentOf(hold.card, session),
        .place = session ? placeOf(*session, topicTitle(state, hold.card.topic)) : std::string(),
        .topic = topicTitle(state, hold.card.topic),
        .label = hold.label,
        .committed = hold.committed,
        .overdue = isOverdue(hold, pressedOf(state, hold.card.id), now),
        .duration = hold.duration};
    if (hold.committed) {
        row.words = hold.label + ". Sent to " + InboxLogic::agentName(hold.card.agent);
    } else {
        row.words = row.overdue ? unclear : "Sending in a moment. Undo.";
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

bool PanelCard::offers(PanelAction::Kind kind) const {
    return std::ranges::find(actions, kind, &PanelAction::kind) != actions.end();
}

std::string PanelCard::refusal() const {
    if (!refused)
        return {};
    return (InboxLogic::mayHaveBeenTyped(card) ? "Look at its terminal before you answer again: "
                                               : "Your answer was not delivered: ") +
           *refused;
}

bool takesAnswer(const PanelRow& row) {
    const auto* const card = std::get_if<PanelCard>(&row);
    return card && card->takesAnswer();
}

CardOpening openingOf(const Card& card) {
    std::string all = InboxLogic::summary(card) == card.title ? std::string() : card.title + "\n";
    all += card.body;
    for (const auto& question : card.rows.value_or(std::vector<BatchRow>())) {
        all += "\n· " + question.text + " ";
        all += question.defaultAnswer ? "Default: " + *question.defaultAnswer : std::string("No default");
    }
    CardOpening opening;
    std::size_t lines = 0;
    for (const auto raw : Text::split(all, '\n', Text::EmptyPieces::drop)) {
        const auto line = readable(raw);
        if (line.empty())
            continue;
        if (lines++ == openingLines) {
            opening.more = true;
            break;
        }
        opening.text += (opening.text.empty() ? "" : "\n") + line;
    }
    const auto beginning = Text::prefix(opening.text, openingLength);
    opening.more = opening.more || beginning.size() < opening.text.size();
    opening.text.resize(beginning.size());
    return opening;
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

std::vector<std::string> pressedLines(
    const AppState& state, const std::vector<PanelRow>& shown, WallTime now) {
    using Known = PressedAnswer::Known;
    std::vector<std::string> lines;
    for (const auto& [id, answer] : state.pressed) {
        const bool shows = std::ranges::any_of(shown, [&](const auto& row) { return cardOf(row).id == id; });
        if (shows || answer.known == Known::refused)
            continue;
        const auto hold = state.holds.find(id);
        const bool waits = answer.known == Known::sending &&
                           !(hold != state.holds.end() && isOverdue(hold->second, &answer, now));
        const auto what = inQuotes(answer.label) + " for " + InboxLogic::agentName(answer.card.agent) + ", " +
                          inQuotes(InboxLogic::summary(answer.card));
        lines.push_back(what + ": " +
                        (waits                             ? "being sent."
                            : answer.known == Known::taken ? "taken, and on its way."
                                                           : unclear));
    }
    return lines;
}

std::optional<double> cardRowsChangeIn(
    const std::vector<PanelRow>& rows, const AppState& state, WallTime now) {
    std::optional<double> soonest;
    const auto at = [&](std::optional<double> wait) {
        if (wait)
            soonest = std::min(soonest.value_or(*wait), std::max(*wait, 0.0));
    };
    for (const auto& card : state.cards) {
        if (const auto until = snoozedUntil(state, card, now))
            at((*until - now).count() + 0.001); // hidden at that very moment still
    }
    for (const auto& [id, hold] : state.holds) {
        const auto overdue = hold.until + seconds(patience);
        if (!hold.committed && overdue > now)
            at((overdue - now).count());
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
