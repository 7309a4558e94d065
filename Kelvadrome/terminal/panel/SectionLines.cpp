#include "Kelvadrome/terminal/panel/SectionLines.h"

#include "Kelvadrome/model/LocalTime.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kelvadrome::SectionLines {

namespace {

using StyledText::cut;
using StyledText::paragraph;
using StyledText::spread;
using TerminalText::clean;
using TerminalText::cleanLine;

Span lampOf(const PanelAgent& row) {
    if (row.ended)
        return {"· ", Style::dim};
    switch (row.line.lamp) {
    case InboxLogic::Lamp::working:
        return {"● ", Style::good};
    case InboxLogic::Lamp::needsYou:
        return {"◆ ", Style::mark};
    case InboxLogic::Lamp::failed:
        return {"✗ ", Style::alert};
    case InboxLogic::Lamp::idle:
        break;
    }
    return {"○ ", Style::dim};
}

std::string cardsOf(const PanelAgent& row) {
    if (row.cards == 0)
        return {};
    return row.cards == 1 ? "1 card" : fmt::format("{} cards", row.cards);
}

Style titleStyle(bool selected) {
    return selected ? Style::strong : Style::plain;
}

Span markOf(ReceiptEntry::Outcome outcome) {
    switch (outcome) {
    case ReceiptEntry::Outcome::arrived:
        return {"✓ ", Style::good};
    case ReceiptEntry::Outcome::failed:
        return {"! ", Style::mark};
    case ReceiptEntry::Outcome::neutral:
        break;
    }
    return {"· ", Style::dim};
}

/// What the icon of a hit shows where there is room for pictures.
const char* iconWords(std::string_view icon) {
    if (icon == "rectangle.split.3x1")
        return "Topic";
    return icon == "checkmark.seal" ? "Decision" : "Question";
}

} // namespace

StyledLines agent(const PanelAgent& row, bool selected, int columns) {
    StyledLine name{lampOf(row), {cleanLine(row.line.name), titleStyle(selected)}};
    if (!row.line.place.empty())
        name.push_back({" · " + cleanLine(row.line.place), Style::dim});
    return {spread(std::move(name), {{cardsOf(row), Style::plain}}, columns),
        cut({{"  " + cleanLine(row.line.words), Style::dim}}, columns)};
}

StyledLines receipt(const PanelReceipt& row, bool selected, int columns) {
    return {cut(
        {{row.time + "  ", Style::dim}, markOf(row.outcome), {cleanLine(row.words), titleStyle(selected)}},
        columns)};
}

StyledLines bar(const CommandBarRow& row, bool selected, int columns) {
    using Kind = CommandBarRow::Kind;
    const Span title{cleanLine(row.title), titleStyle(selected)};
    if (row.kind == Kind::hit)
        return {spread({title}, {{iconWords(row.icon), Style::dim}}, columns),
            cut({{cleanLine(row.detail), Style::dim}}, columns)};
    StyledLines out{spread({title}, {{row.busy ? "…" : row.ending, Style::accent}}, columns)};
    if (row.kind == Kind::proposal)
        paragraph(out, cleanLine(row.detail), Style::good, 0, columns);
    else
        out.push_back(cut({{selected && !row.busy ? CommandBar::returnHint : "", Style::dim}}, columns));
    return out;
}

StyledLines barDetail(const CommandBarRow& row, int columns) {
    using Kind = CommandBarRow::Kind;
    StyledLines out;
    paragraph(out, cleanLine(row.title), Style::strong, 0, columns);
    if (!row.detail.empty())
        paragraph(
            out, cleanLine(row.detail), row.kind == Kind::proposal ? Style::good : Style::plain, 0, columns);
    out.emplace_back();
    const char* const enter = row.kind == Kind::ask ? "  makes a card of it" : "  opens it";
    out.push_back(cut({{"Enter", Style::accent}, {enter, Style::plain}}, columns));
    if (row.kind != Kind::proposal)
        out.push_back(cut({{"Tab", Style::accent}, {"  lists all results", Style::plain}}, columns));
    return out;
}

StyledLines hit(const PanelHit& row, bool selected, int columns) {
    const auto below = row.note.empty() ? row.hit.snippet : row.note;
    return {cut({{cleanLine(row.hit.title), titleStyle(selected)}}, columns),
        cut({{cleanLine(below), row.note.empty() ? Style::dim : Style::good}}, columns)};
}

StyledLines lamps(const std::vector<PanelAgent>& rows, std::size_t count, int columns) {
    const auto nameOf = [](const PanelAgent& row) {
        return cleanLine(row.line.name + (row.line.place.empty() ? "" : " · " + row.line.place));
    };
    count = std::min(count, rows.size());
    int nameWidth = 0;
    for (std::size_t i = 0; i < count; ++i)
        nameWidth = std::max(nameWidth, TerminalText::width(nameOf(rows[i])));
    nameWidth = std::min(nameWidth, columns / 2);
    StyledLines lines;
    for (std::size_t i = 0; i < count; ++i) {
        auto name = StyledText::padded({{nameOf(rows[i]), Style::plain}}, nameWidth + 2);
        name.insert(name.begin(), lampOf(rows[i]));
        name.push_back({cleanLine(rows[i].line.words), Style::dim});
        lines.push_back(cut(std::move(name), columns));
    }
    return lines;
}

StyledLines agentDetail(const PanelAgent& row, int columns) {
    StyledLines out{cut({{cleanLine(row.line.name), Style::strong}}, columns)};
    const auto line = [&](const char* name, const std::string& value) {
        if (!value.empty())
            paragraph(out, name + cleanLine(value), Style::plain, 0, columns);
    };
    out.push_back(cut(
        {lampOf(row), {row.ended ? "ended" : std::string(lampWords(row.line.lamp)), Style::plain}}, columns));
    line("", row.line.words);
    line("Where: ", row.line.place);
    line("Session: ", row.sessionId);
    out.emplace_back();
    if (row.cards > 0)
        out.push_back(
            cut({{"Enter", Style::accent}, {"  shows its " + cardsOf(row), Style::plain}}, columns));
    if (!row.ended)
        out.push_back(
            cut({{"w", Style::accent}, {"  brings its terminal to the front", Style::plain}}, columns));
    return out;
}

StyledLines receiptDetail(const PanelReceipt& row, int columns) {
    StyledLines out{cut({{row.day + " " + row.time, Style::dim}}, columns)};
    paragraph(out, clean(row.words), Style::plain, 0, columns);
    if (!row.byWhom.empty())
        paragraph(out, row.byWhom, Style::dim, 0, columns);
    if (row.card) {
        out.emplace_back();
        out.push_back(cut({{"Enter", Style::accent}, {"  shows the card", Style::plain}}, columns));
    }
    return out;
}

StyledLines hitDetail(const PanelHit& row, int columns) {
    StyledLines out;
    paragraph(out, cleanLine(row.hit.title), Style::strong, 0, columns);
    if (!row.note.empty())
        paragraph(out, cleanLine(row.note), Style::good, 0, columns);
    if (!row.hit.snippet.empty())
        paragraph(out, clean(row.hit.snippet), Style::plain, 0, columns);
    out.emplace_back();
    out.push_back(cut({{"Enter", Style::accent}, {"  opens it", Style::plain}}, columns));
    return out;
}

StyledLines card(const CardRecord& card, WallTime now, int columns) {
    StyledLines out;
    const auto closed = card.closedAt ? InboxLogic::date(*card.closedAt) : std::nullopt;
    out.push_back(spread({{cleanLine(InboxLogic::agentName(card.agent)), Style::plain}},
        {{closed ? dayWords(*closed, now) + " " + clockTime(*closed) : std::string(), Style::dim}}, columns));
    paragraph(out, cleanLine(card.title), Style::strong, 0, columns);
    paragraph(out, clean(card.ending()), card.outcome == "answered" ? Style::good : Style::plain, 0, columns);
    if (!card.body.empty()) {
        out.emplace_back();
        paragraph(out, clean(card.body), Style::plain, 0, columns);
    }
    if (!card.options.empty()) {
        out.emplace_back();
        for (const auto& option : card.options)
            paragraph(out, "- " + cleanLine(option), Style::dim, 0, columns);
    }
    return out;
}

} // namespace kelvadrome::SectionLines
