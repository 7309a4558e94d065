#include "Kelvadrome/terminal/PanelRows.h"

#include "Kelvadrome/terminal/TerminalText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace kelvadrome::PanelRows {

namespace {

using TerminalText::clean;
using TerminalText::cleanLine;
using TerminalText::elide;

constexpr int gutter = 2; // the selection's bar and a blank
constexpr std::size_t collapsedSummary = 2;
constexpr std::size_t collapsedOptions = 2;

int widthOf(const StyledLine& line) {
    int width = 0;
    for (const auto& span : line)
        width += TerminalText::width(span.text);
    return width;
}

StyledLine cut(StyledLine line, int columns) {
    StyledLine result;
    int left = columns;
    for (auto& span : line) {
        const int width = TerminalText::width(span.text);
        const bool whole = width <= left;
        if (!whole)
            span.text = elide(span.text, left);
        left -= width;
        if (!span.text.empty())
            result.push_back(std::move(span));
        if (!whole)
            break; // nothing may follow the ellipsis
    }
    return result;
}

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
        const auto number = row.highRisk ? std::string("- ") : fmt::format("{} ", i + 1);
        const auto text = cleanLine(row.card.options[i]);
        const int width = static_cast<int>(number.size()) + TerminalText::width(text);
        if (used > 0 && used + 3 + width > columns)
            flush();
        if (used > 0)
            line.push_back({"   ", Style::plain});
        used += (used > 0 ? 3 : 0) + width;
        line.push_back({number, selected && !row.highRisk ? Style::accent : Style::dim});
        const auto wrapped = TerminalText::wrap(text, columns - static_cast<int>(number.size()));
        line.push_back({wrapped.front(), row.highRisk ? Style::dim : Style::plain});
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

std::vector<StyledLine> cardLines(const PanelCard& row, bool selected, bool expanded, int columns) {
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
        paragraph(out, cleanLine(PanelCard::notDelivered + *row.refused), Style::warn, 0, columns);
    if (expanded) {
        if (!row.card.body.empty())
            paragraph(out, clean(row.card.body), Style::dim, 0, columns);
        appendQuestions(out, row.card, columns);
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

std::vector<StyledLine> holdLines(const HoldRow& row, bool selected, int columns) {
    std::vector<StyledLine> out;
    out.push_back(spread(whoAndWhat(row.agent, row.topic, selected ? Style::strong : Style::plain),
        row.committed ? StyledLine() : countdown(row), columns));
    if (row.committed) {
        paragraph(out, "✓ " + cleanLine(row.words), Style::good, 0, columns, collapsedSummary);
        return out;
    }
    paragraph(out, cleanLine(row.label), Style::strong, 0, columns, collapsedSummary);
    out.push_back(cut(keyed("u", true, row.words, Style::plain), columns));
    return out;
}

std::pair<const char*, Style> lampMark(InboxLogic::Lamp lamp) {
    switch (lamp) {
    case InboxLogic::Lamp::working:
        return {"●", Style::good};
    case InboxLogic::Lamp::needsYou:
        return {"◆", Style::warn};
    case InboxLogic::Lamp::failed:
        return {"✗", Style::alert};
    case InboxLogic::Lamp::idle:
        break;
    }
    return {"○", Style::dim};
}

struct KeyWords {
    const char* key;
    const char* words;
};

} // namespace

StyledLine spread(StyledLine left, StyledLine right, int columns) {
    const int rightWidth = widthOf(right);
    auto line = cut(std::move(left), std::max(0, columns - rightWidth - (rightWidth > 0 ? 2 : 0)));
    const int gap = columns - widthOf(line) - rightWidth;
    if (rightWidth == 0)
        return line;
    line.push_back({std::string(static_cast<std::size_t>(std::max(0, gap)), ' '), Style::plain});
    line.insert(line.end(), right.begin(), right.end());
    return line;
}

void paragraph(std::vector<StyledLine>& out, const std::string& text, Style style, int indent, int columns,
    std::size_t limit) {
    auto lines = TerminalText::wrap(text, columns - indent);
    if (limit > 0 && lines.size() > limit) {
        lines.resize(limit);
        auto& last = lines.back();
        last = elide(last + " …", columns - indent);
    }
    for (auto& line : lines)
        out.push_back({{std::string(static_cast<std::size_t>(indent), ' ') + line, style}});
}

std::vector<StyledLine> row(const PanelRow& row, bool selected, const PanelFocus& focus, int columns) {
    const int room = columns - gutter;
    const auto* hold = std::get_if<HoldRow>(&row);
    auto lines = hold ? holdLines(*hold, selected, room)
                      : cardLines(std::get<PanelCard>(row), selected, selected && focus.expanded, room);
    for (auto& line : lines)
        line.insert(line.begin(), Span{selected ? "▌ " : "  ", Style::accent});
    return lines;
}

std::vector<StyledLine> agents(const std::vector<AgentLine>& agents, std::size_t count, int columns) {
    count = std::min(count, agents.size());
    int nameWidth = 0;
    for (std::size_t i = 0; i < count; ++i) {
        nameWidth = std::max(nameWidth, TerminalText::width(cleanLine(agents[i].name)));
    }
    nameWidth = std::min(nameWidth, columns / 3);
    std::vector<StyledLine> lines;
    for (std::size_t i = 0; i < count; ++i) {
        const auto [mark, style] = lampMark(agents[i].lamp);
        const auto name = elide(cleanLine(agents[i].name), nameWidth);
        const auto pad =
            std::string(static_cast<std::size_t>(nameWidth - TerminalText::width(name) + 2), ' ');
        const auto words = elide(cleanLine(agents[i].words), columns - gutter - 2 - nameWidth - 2);
        lines.push_back(
            {{"  ", Style::plain}, {mark, style}, {" " + name + pad, Style::plain}, {words, Style::dim}});
    }
    return lines;
}

std::vector<StyledLine> link(const PanelLink& link, int columns) {
    std::vector<StyledLine> lines;
    paragraph(lines, link.title, Style::strong, gutter, columns);
    if (!link.url.empty()) {
        // Not indented, so that a mark over its lines takes the link and nothing else.
        for (auto& piece : TerminalText::wrap(clean(link.url), columns)) {
            lines.push_back({{std::move(piece), Style::accent}});
        }
    }
    for (const auto& note : link.notes)
        paragraph(lines, note, Style::dim, gutter, columns);
    return lines;
}

std::vector<StyledLine> editor(const PanelFocus& focus, int columns, int maxLines, Picture::Cursor& cursor) {
    std::vector<StyledLine> lines;
    const int width = columns - gutter - 1; // a column for the cursor behind a full line
    std::string line;
    int used = 0;
    std::size_t at = 0;
    bool placed = false;
    const auto place = [&] {
        cursor = {static_cast<int>(lines.size()), gutter + used};
        placed = true;
    };
    for (const auto& cluster : TerminalText::clusters(focus.editor.text())) {
        if (used + cluster.width > width) {
            lines.push_back({{(lines.empty() ? "> " : "  ") + std::exchange(line, {}), Style::plain}});
            used = 0;
        }
        if (at == focus.editor.cursor())
            place();
        line += cluster.text;
        used += cluster.width;
        at += cluster.text.size();
    }
    if (!placed)
        place();
    lines.push_back({{(lines.empty() ? "> " : "  ") + line, Style::plain}});
    if (static_cast<int>(lines.size()) > maxLines) {
        const int first = std::clamp(cursor.row - maxLines + 1, 0, static_cast<int>(lines.size()) - maxLines);
        lines.erase(lines.begin(), lines.begin() + first);
        lines.resize(static_cast<std::size_t>(maxLines));
        cursor.row -= first;
    }
    return lines;
}

StyledLine keys(
    const MenuPanelContent& content, const PanelFocus& focus, const PanelExtras& extras, int columns) {
    std::vector<KeyWords> items;
    const PanelRow* selected = nullptr;
    for (const auto& row : content.rows) {
        if (focus.selected && cardOf(row).id == *focus.selected)
            selected = &row;
    }
    if (focus.mode == PanelFocus::Mode::typing) {
        items = {{"Enter", "send"}, {"Esc", "leave"}, {"^U", "clear"}, {"^W", "word"}};
    } else if (focus.mode == PanelFocus::Mode::alert) {
        items = {{"Enter", extras.alert ? extras.alert->button.c_str() : "OK"}};
    } else if (focus.mode == PanelFocus::Mode::help) {
        items = {{"any key", "back"}};
    } else {
        if (content.retry)
            items.push_back({"r", "try again"});
        if (extras.link)
            items.push_back({"y", "copy"}), items.push_back({"Esc", "close"});
        if (const auto* card = selected ? std::get_if<PanelCard>(selected) : nullptr) {
            const bool chooses = !card->highRisk && !card->card.options.empty();
            if (chooses)
                items.push_back({"1-9", "choose"});
            if (!card->highRisk && card->card.kind != "batch")
                items.push_back({"t", "type"});
            items.push_back({"Enter", focus.expanded ? "less" : "more"});
            items.push_back({"z", "snooze"});
            if (!card->highRisk)
                items.push_back({"v", "review"});
        }
        if (content.rows.size() > 1)
            items.push_back({"↑↓", "pick"});
    }
    StyledLine ends;
    if (focus.mode == PanelFocus::Mode::rows) {
        ends = {{"?", Style::accent}, {" keys  ", Style::dim}, {"q", Style::accent}, {" quit", Style::dim}};
    }
    StyledLine line{{"  ", Style::plain}};
    const int room = columns - widthOf(ends) - (ends.empty() ? 0 : 2);
    for (const auto& item : items) {
        StyledLine next{{item.key, Style::accent}, {std::string(" ") + item.words, Style::dim}};
        const int gap = line.size() > 1 ? 2 : 0;
        if (widthOf(line) + gap + widthOf(next) > room)
            break;
        if (gap > 0)
            line.push_back({"  ", Style::plain});
        line.insert(line.end(), next.begin(), next.end());
    }
    return ends.empty() ? line : spread(std::move(line), ends, columns);
}

std::vector<StyledLine> help(int columns) {
    static constexpr std::array<KeyWords, 19> all = {{{"↑ ↓", "pick a row (also k, j, Tab)"},
        {"Enter", "show all of a row, or less (also Space)"}, {"a", "accept the suggested answer"},
        {"1-9", "choose an option by its number"}, {"t", "type an answer"},
        {"d", "accept a batch's defaults"}, {"u", "undo an answer on its way"},
        {"z", "snooze a card for 30 minutes"}, {"v", "review a card in kelvadrome"},
        {"e", "bring Edge to front"}, {"o", "open kelvadrome"}, {"y", "copy the link"},
        {"Esc", "close the link"}, {"r", "try again"}, {"f", "finish setup"}, {"b", "background permission"},
        {"PgUp PgDn", "scroll"}, {"^L", "draw again"}, {"q", "quit (also Ctrl-C)"}}};
    std::vector<StyledLine> lines;
    constexpr int keyColumns = 11;
    for (const auto& item : all) {
        std::string key = item.key;
        for (auto& words : TerminalText::wrap(item.words, columns - gutter - keyColumns)) {
            key.append(static_cast<std::size_t>(keyColumns - TerminalText::width(key)), ' ');
            lines.push_back({{"  ", Style::plain}, {std::exchange(key, {}), Style::accent},
                {std::move(words), Style::plain}});
        }
    }
    return lines;
}

} // namespace kelvadrome::PanelRows
