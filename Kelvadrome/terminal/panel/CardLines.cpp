#include "Kelvadrome/terminal/panel/CardLines.h"

#include "Kelvadrome/terminal/panel/TerminalText.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace kelvadrome::CardLines {

namespace {

using StyledText::cut;
using StyledText::notice;
using StyledText::paragraph;
using StyledText::spread;
using StyledText::widthOf;
using TerminalText::clean;
using TerminalText::cleanLine;

constexpr std::size_t shortSummary = 2; // lines
constexpr std::size_t shortOptions = 3;
constexpr std::size_t shortBody = 4;
constexpr int roomForSnooze = 64; // columns in which a card says in its head until when it is snoozed

/// "Claude Code · Ada tmux %3 · Billing"; the last parts go when there is no room.
StyledLine whoAndWhat(const std::string& agent, const std::string& place,
    const std::optional<std::string>& topic, Style style) {
    StyledLine line{{cleanLine(agent), style}};
    if (!place.empty())
        line.push_back({" · " + cleanLine(place), Style::dim});
    if (topic)
        line.push_back({" · " + cleanLine(*topic), Style::dim});
    return line;
}

StyledLine keyed(const char* key, std::string words, Style style) {
    return {{std::string(key) + "  ", Style::accent}, {std::move(words), style}};
}

/// The time left to undo, as a bar and a number.
StyledLine countdown(const HoldRow& row) {
    constexpr int bar = 8;
    const double share = row.duration > 0 ? row.left / row.duration : 0;
    const int full = std::clamp(static_cast<int>(std::ceil(share * bar)), 0, bar);
    StyledLine line;
    for (int i = 0; i < bar; ++i)
        line.push_back({i < full ? "━" : "─", i < full ? Style::mark : Style::dim});
    line.push_back({fmt::format("  {:.0f} s", std::ceil(row.left)), Style::dim});
    return line;
}

StyledLine headOf(const PanelEntry& row, bool selected, int columns) {
    const auto style = selected ? Style::strong : Style::plain;
    if (const auto* const hold = row.hold()) {
        const bool counts = !hold->committed && !hold->overdue;
        return spread(whoAndWhat(hold->agent, hold->place, hold->topic, style),
            counts ? countdown(*hold) : StyledLine(), columns);
    }
    const auto& card = *row.card();
    StyledLine right;
    if (card.highRisk)
        right.push_back({"! High risk", Style::alert});
    const auto& time = card.snoozed.empty() || columns < roomForSnooze ? card.age : card.snoozed;
    if (!time.empty())
        right.push_back({(right.empty() ? "" : "  ") + time, Style::dim});
    return spread(whoAndWhat(card.agent, card.place, card.topic, style), std::move(right), columns);
}

/// One option a line, or side by side while they fit; each under its number, unless no key chooses it.
StyledLines options(const PanelCard& row, bool stacked, int columns) {
    StyledLines lines;
    StyledLine line;
    int used = 0;
    const bool keys = row.takesAnswer();
    const auto flush = [&] {
        if (!line.empty())
            lines.push_back(std::exchange(line, {}));
        used = 0;
    };
    for (std::size_t i = 0; i < row.card.options.size(); ++i) {
        const auto number = keys ? fmt::format("{} ", i + 1) : std::string("- ");
        const auto text = cleanLine(row.card.options[i]);
        const int width = static_cast<int>(number.size()) + TerminalText::width(text);
        if (stacked || (used > 0 && used + 3 + width > columns))
            flush();
        if (used > 0)
            line.push_back({"   ", Style::plain});
        used += (used > 0 ? 3 : 0) + width;
        line.push_back({number, keys ? Style::accent : Style::dim});
        const auto wrapped = TerminalText::wrap(text, columns - static_cast<int>(number.size()));
        line.push_back({wrapped.front(), keys ? Style::plain : Style::dim});
        for (std::size_t more = 1; more < wrapped.size(); ++more) {
            flush();
            line = {{std::string(number.size(), ' '), Style::plain}, {wrapped[more], Style::plain}};
            used = columns;
        }
    }
    flush();
    return lines;
}

void appendQuestions(StyledLines& out, const Card& card, int columns) {
    if (!card.rows)
        return;
    for (const auto& question : *card.rows) {
        paragraph(out, "· " + cleanLine(question.text), Style::plain, 0, columns);
        paragraph(out,
            question.defaultAnswer ? "Default: " + cleanLine(*question.defaultAnswer)
                                   : std::string("No default"),
            Style::dim, 2, columns);
    }
}

const char* keyOf(PanelAction::Kind kind) {
    switch (kind) {
    case PanelAction::Kind::review:
        return "v";
    case PanelAction::Kind::bringEdgeToFront:
        return "e";
    case PanelAction::Kind::answer:
    case PanelAction::Kind::acceptDefaults:
        return "a";
    case PanelAction::Kind::undo:
        return "u";
    default:
        return nullptr; // snoozing and its like are on the line of keys
    }
}

void appendActions(StyledLines& out, const PanelCard& row, int columns) {
    for (const auto& action : row.actions) {
        const auto* const key = keyOf(action.kind);
        if (!key)
            continue;
        auto line = keyed(key, cleanLine(action.words), Style::strong);
        const bool fits = widthOf(line) + 2 + TerminalText::width(action.note) <= columns;
        if (!action.note.empty() && fits)
            line.push_back({"  " + action.note, Style::dim});
        out.push_back(cut(std::move(line), columns));
        if (!action.note.empty() && !fits)
            paragraph(out, action.note, Style::dim, 3, columns);
    }
}

/// What is to be read before an answer is pressed: its beginning, or all of it.
void appendReading(StyledLines& out, const PanelCard& row, Extent extent, int columns) {
    const auto& card = row.card;
    if (extent == Extent::whole) {
        if (row.summary != card.title)
            paragraph(out, cleanLine(card.title), Style::plain, 0, columns);
        if (!card.body.empty())
            paragraph(out, clean(card.body), Style::plain, 0, columns);
        appendQuestions(out, card, columns);
        return;
    }
    StyledLines lines;
    if (!row.opening.text.empty())
        paragraph(lines, clean(row.opening.text), Style::plain, 0, columns);
    const bool more = row.opening.more || lines.size() > shortBody;
    lines.resize(std::min(shortBody, lines.size()));
    StyledText::append(out, std::move(lines));
    if (more)
        out.push_back(keyed("Enter", "shows the rest", Style::plain));
}

void appendOptions(StyledLines& out, const PanelCard& row, Extent extent, int columns) {
    auto choices = options(row, extent == Extent::whole, columns);
    const bool cutShort = extent == Extent::opening && choices.size() > shortOptions;
    if (cutShort) {
        choices.resize(shortOptions);
        choices.back() = cut(std::move(choices.back()), columns - 2);
        choices.back().push_back({" …", Style::dim});
    }
    for (auto& line : choices)
        out.push_back(cut(std::move(line), columns));
}

/// What is known of earlier answers, and what stands between the next one and the agent.
StyledLines notices(const PanelEntry& row, int columns) {
    const auto& card = *row.card();
    StyledLines out;
    if (card.refused)
        notice(out, cleanLine(card.refusal()), 0, columns);
    if (const auto attempt = InboxLogic::lastAttempt(card.card))
        notice(out, cleanLine(*attempt), 0, columns);
    if (card.card.deliveryNote)
        notice(out, cleanLine(*card.card.deliveryNote), 0, columns);
    if (row.group == PanelEntry::Group::agentEnded)
        notice(out, cleanLine(card.agent) + " has ended. Nobody is left to take an answer.", 0, columns);
    if (!card.way.empty())
        notice(out, cleanLine(card.way), 0, columns);
    return out;
}

StyledLines fullHold(const PanelEntry& row, int columns) {
    const auto& hold = *row.hold();
    StyledLines out{headOf(row, true, columns)};
    if (hold.committed) {
        paragraph(out, "✓ " + cleanLine(hold.words), Style::good, 0, columns, shortSummary);
        return out;
    }
    paragraph(out, cleanLine(hold.label), Style::strong, 0, columns, shortSummary);
    if (hold.overdue)
        notice(out, hold.words, 0, columns);
    out.push_back(cut(keyed("u", hold.overdue ? "Undo" : hold.words, Style::plain), columns));
    return out;
}

/// The second line of a row in the list: what became of it, else what it asks.
StyledLine briefLine(const PanelEntry& row, bool selected) {
    if (const auto* const hold = row.hold()) {
        if (hold->committed)
            return {{"✓ " + cleanLine(hold->words), Style::good}};
        return {{"! ", Style::mark},
            {cleanLine(inQuotes(hold->label) + (hold->overdue ? ": " + hold->words : "")), Style::plain}};
    }
    const auto& card = *row.card();
    if (!card.way.empty())
        return {{"! ", Style::mark}, {cleanLine(card.way), Style::plain}};
    return {{cleanLine(card.summary), selected ? Style::strong : Style::plain}};
}

} // namespace

StyledLines brief(const PanelEntry& row, bool selected, int columns) {
    return {headOf(row, selected, columns), cut(briefLine(row, selected), columns)};
}

StyledLines full(const PanelEntry& row, Extent extent, int columns) {
    if (row.hold())
        return fullHold(row, columns);
    const auto& card = *row.card();
    const bool whole = extent == Extent::whole;
    StyledLines out{headOf(row, true, columns)};
    paragraph(out, cleanLine(card.summary), Style::strong, 0, columns, whole ? 0 : shortSummary);
    if (!card.snoozed.empty() && columns < roomForSnooze)
        paragraph(out, card.snoozed, Style::dim, 0, columns);
    StyledText::append(out, notices(row, columns));
    appendReading(out, card, extent, columns);
    if (card.way.empty())
        appendOptions(out, card, extent, columns);
    appendActions(out, card, columns);
    return out;
}

} // namespace kelvadrome::CardLines
