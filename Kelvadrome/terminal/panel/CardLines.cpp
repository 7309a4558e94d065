#include "Kelvadrome/terminal/panel/CardLines.h"

#include "Kelvadrome/terminal/panel/PanelRows.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kelvadrome::CardLines {

namespace {

using PanelRows::cut;
using PanelRows::paragraph;
using PanelRows::spread;
using PanelRows::widthOf;
using TerminalText::clean;
using TerminalText::cleanLine;

constexpr std::size_t collapsedSummary = 2;
constexpr std::size_t collapsedOptions = 2;
constexpr std::size_t collapsedBody = 4;
constexpr std::size_t collapsedOther = 1; // of a row that no key answers now

/// "Claude Code · Billing"; the agent's name goes last when there is no room.
StyledLine whoAndWhat(const std::string& agent, const std::optional<std::string>& topic, Style style) {
    StyledLine line{{cleanLine(agent), style}};
    if (topic)
        line.push_back({" · " + cleanLine(*topic), Style::dim});
    return line;
}

StyledLine keyed(const char* key, bool selected, std::string words, Style style) {
    return {{selected ? std::string(key) + "  " : "   ", Style::accent}, {std::move(words), style}};
}

/// Options side by side while they fit, each under its number; without numbers when they can't be chosen
/// here.
std::vector<StyledLine> options(const PanelCard& row, bool selected, int columns) {
    std::vector<StyledLine> lines;
    StyledLine line;
    int used = 0;
    const auto flush = [&] {
        if (!line.empty())
            lines.push_back(std::exchange(line, {}));
        used = 0;
    };
    for (std::size_t i = 0; i < row.card.options.size(); ++i) {
        const auto number = !row.takesAnswer() ? std::string("- ") : fmt::format("{} ", i + 1);
        const auto text = cleanLine(row.card.options[i]);
        const int width = static_cast<int>(number.size()) + TerminalText::width(text);
        if (used > 0 && used + 3 + width > columns)
            flush();
        if (used > 0)
            line.push_back({"   ", Style::plain});
        used += (used > 0 ? 3 : 0) + width;
        line.push_back({number, selected && row.takesAnswer() ? Style::accent : Style::dim});
        const auto wrapped = TerminalText::wrap(text, columns - static_cast<int>(number.size()));
        line.push_back({wrapped.front(), row.takesAnswer() ? Style::plain : Style::dim});
        for (std::size_t more = 1; more < wrapped.size(); ++more) {
            flush();
            line = {{std::string(number.size(), ' '), Style::plain}, {wrapped[more], Style::plain}};
            used = columns;
        }
    }
    flush();
    return lines;
}

void appendQuestions(std::vector<StyledLine>& out, const Card& card, int columns) {
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

void appendActions(std::vector<StyledLine>& out, const PanelCard& row, bool selected, int columns) {
    using Kind = PanelAction::Kind;
    for (const auto& action : row.actions) {
        const char* key = nullptr;
        switch (action.kind) {
        case Kind::review:
            key = "v";
            break;
        case Kind::bringEdgeToFront:
            key = "e";
            break;
        case Kind::answer:
            key = "a";
            break;
        case Kind::acceptDefaults:
            key = "d";
            break;
        case Kind::undo:
            key = "u";
            break;
        default:
            continue; // snoozing is on the line of keys
        }
        auto line = keyed(key, selected, cleanLine(action.words), Style::strong);
        const int room = columns - widthOf(line) - 2;
        if (action.note.empty() || TerminalText::width(action.note) <= room) {
            if (!action.note.empty())
                line.push_back({"  " + action.note, Style::dim});
            out.push_back(cut(std::move(line), columns));
        } else {
            out.push_back(cut(std::move(line), columns));
            paragraph(out, action.note, Style::dim, 3, columns);
        }
    }
}

/// What is to be read before an answer is pressed: its beginning at once, all of it when the row is expanded.
void appendReading(
    std::vector<StyledLine>& out, const PanelCard& row, bool selected, bool expanded, int columns) {
    const auto& card = row.card;
    if (expanded) {
        if (row.summary != card.title)
            paragraph(out, cleanLine(card.title), Style::plain, 0, columns);
        if (!card.body.empty())
            paragraph(out, clean(card.body), Style::plain, 0, columns);
        appendQuestions(out, card, columns);
        return;
    }
    std::vector<StyledLine> lines;
    if (!row.opening.text.empty())
        paragraph(lines, clean(row.opening.text), selected ? Style::plain : Style::dim, 0, columns);
    const auto limit = selected ? collapsedBody : collapsedOther;
    const bool more = row.opening.more || lines.size() > limit;
    lines.resize(std::min(limit, lines.size()));
    for (auto& line : lines)
        out.push_back(std::move(line));
    if (more)
        out.push_back(
            selected ? keyed("Enter", true, "shows the rest", Style::warn) : StyledLine{{"…", Style::dim}});
}

/// The time left to undo, as a bar and a number.
StyledLine countdown(const HoldRow& row) {
    constexpr int bar = 8;
    const double share = row.duration > 0 ? row.left / row.duration : 0;
    const int full = std::clamp(static_cast<int>(std::ceil(share * bar)), 0, bar);
    StyledLine line;
    for (int i = 0; i < bar; ++i)
        line.push_back({i < full ? "━" : "─", i < full ? Style::warn : Style::dim});
    line.push_back({fmt::format("  {:.0f} s", std::ceil(row.left)), Style::dim});
    return line;
}

} // namespace

std::vector<StyledLine> card(const PanelCard& row, bool selected, bool expanded, int columns) {
    std::vector<StyledLine> out;
    StyledLine right;
    if (row.highRisk)
        right.push_back({"! High risk", Style::alert});
    if (!row.age.empty())
        right.push_back({(right.empty() ? "" : "  ") + row.age, Style::dim});
    out.push_back(
        spread(whoAndWhat(row.agent, row.topic, selected ? Style::strong : Style::plain), right, columns));
    paragraph(out, cleanLine(row.summary), selected ? Style::strong : Style::plain, 0, columns,
        expanded ? 0 : collapsedSummary);
    if (row.refused)
        paragraph(out, cleanLine(row.refusal()), Style::warn, 0, columns);
    if (const auto attempt = InboxLogic::lastAttempt(row.card))
        paragraph(out, cleanLine(*attempt), Style::warn, 0, columns);
    if (row.card.deliveryNote)
        paragraph(out, cleanLine(*row.card.deliveryNote), Style::warn, 0, columns);
    appendReading(out, row, selected, expanded, columns);
    if (!row.way.empty()) {
        paragraph(out, cleanLine(row.way), Style::warn, 0, columns);
        appendActions(out, row, selected, columns);
        return out;
    }
    auto choices = options(row, selected, columns);
    const bool whole = expanded || choices.size() <= collapsedOptions;
    if (!whole) {
        choices.resize(collapsedOptions);
        choices.back() = cut(std::move(choices.back()), columns - 2);
        choices.back().push_back({" …", Style::dim});
    }
    for (auto& line : choices)
        out.push_back(cut(std::move(line), columns));
    appendActions(out, row, selected, columns);
    return out;
}

std::vector<StyledLine> hold(const HoldRow& row, bool selected, int columns) {
    std::vector<StyledLine> out;
    out.push_back(spread(whoAndWhat(row.agent, row.topic, selected ? Style::strong : Style::plain),
        row.committed || row.overdue ? StyledLine() : countdown(row), columns));
    if (row.committed) {
        paragraph(out, "✓ " + cleanLine(row.words), Style::good, 0, columns, collapsedSummary);
        return out;
    }
    paragraph(out, cleanLine(row.label), Style::strong, 0, columns, collapsedSummary);
    if (row.overdue)
        paragraph(out, row.words, Style::warn, 0, columns);
    out.push_back(cut(keyed("u", true, row.overdue ? "Undo" : row.words, Style::plain), columns));
    return out;
}

} // namespace kelvadrome::CardLines
