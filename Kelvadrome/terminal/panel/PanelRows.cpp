#include "Kelvadrome/terminal/panel/PanelRows.h"

#include "Kelvadrome/terminal/panel/CardLines.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <algorithm>
#include <array>

namespace kelvadrome::PanelRows {

namespace {

using TerminalText::clean;
using TerminalText::cleanLine;
using TerminalText::elide;

constexpr int gutter = 2; // the selection's bar and a blank

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
    auto lines = hold ? CardLines::hold(*hold, selected, room)
                      : CardLines::card(std::get<PanelCard>(row), selected, selected && focus.expanded, room);
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
    } else if (focus.mode == PanelFocus::Mode::question && extras.alert && extras.alert->refuse) {
        items = {{"Enter", extras.alert->refuse->c_str()}, {"q", extras.alert->button.c_str()}};
    } else if (focus.mode == PanelFocus::Mode::help) {
        items = {{"any key", "back"}};
    } else {
        if (content.retry)
            items.push_back(
                {"r", content.body == MenuPanelContent::Body::failed ? "try again" : "start it here"});
        if (extras.link)
            items.push_back({"y", "copy"}), items.push_back({"Esc", "close"});
        if (const auto* card = selected ? std::get_if<PanelCard>(selected) : nullptr) {
            if (card->takesAnswer() && !card->card.options.empty())
                items.push_back({"1-9", "choose"});
            if (card->takesAnswer() && card->card.kind != "batch")
                items.push_back({"t", "type"});
            items.push_back({"Enter", focus.expanded ? "less" : "more"});
            if (card->offers(PanelAction::Kind::snooze))
                items.push_back({"z", "snooze"});
            if (!card->offers(PanelAction::Kind::review))
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
