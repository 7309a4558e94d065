#include "Kelvadrome/terminal/panel/PanelBody.h"

#include "Kelvadrome/terminal/panel/CardLines.h"
#include "Kelvadrome/terminal/panel/PanelKeys.h"
#include "Kelvadrome/terminal/panel/PanelRules.h"
#include "Kelvadrome/terminal/panel/SectionLines.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <algorithm>

namespace kelvadrome::PanelBody {

namespace {

using Mode = PanelFocus::Mode;
using StyledText::paragraph;

constexpr int gutter = 2; // the selection's bar and a blank

int count(const StyledLines& lines) {
    return static_cast<int>(lines.size());
}

/// One row of the list that shows, as it stands in the list.
StyledLines briefRow(
    const PanelContent& content, const PanelFocus& focus, std::size_t index, bool selected, int columns) {
    if (&focus.list() == &focus.bar)
        return SectionLines::bar(content.barRows[index], selected, columns);
    switch (focus.section) {
    case PanelSection::results:
        return SectionLines::hit(content.hits[index], selected, columns);
    case PanelSection::agents:
        return SectionLines::agent(content.agents[index], selected, columns);
    case PanelSection::receipts:
        return SectionLines::receipt(content.receipts[index], selected, columns);
    case PanelSection::inbox:
        break;
    }
    return CardLines::brief(content.inbox[index], selected, columns);
}

/// What shows beside the list.
StyledLines detail(const PanelContent& content, const PanelFocus& focus, int columns) {
    const auto index = focus.list().index();
    if (focus.list().empty())
        return {};
    if (&focus.list() == &focus.bar)
        return SectionLines::barDetail(content.barRows[index], columns);
    switch (focus.section) {
    case PanelSection::results:
        return SectionLines::hitDetail(content.hits[index], columns);
    case PanelSection::agents:
        return SectionLines::agentDetail(content.agents[index], columns);
    case PanelSection::receipts:
        return SectionLines::receiptDetail(content.receipts[index], columns);
    case PanelSection::inbox:
        break;
    }
    return CardLines::full(content.inbox[index], CardLines::Extent::whole, columns);
}

StyledLines selectedLines(
    const PanelContent& content, const PanelFocus& focus, const PanelLayout& layout, int columns) {
    const auto index = focus.list().index();
    const bool card = &focus.list() == &focus.inbox && !layout.wide;
    auto lines = card ? CardLines::full(content.inbox[index],
                            focus.expanded ? CardLines::Extent::whole : CardLines::Extent::opening, columns)
                      : briefRow(content, focus, index, true, columns);
    return lines;
}

/// What stands in a list's place when it is empty.
StyledLines emptyWords(const PanelContent& content, const PanelFocus& focus, int columns) {
    StyledLines out;
    const auto say = [&](const std::string& title, const std::string& text, Style style = Style::strong) {
        paragraph(out, TerminalText::clean(title), style, gutter, columns);
        if (!text.empty())
            paragraph(out, TerminalText::clean(text), Style::dim, gutter, columns);
    };
    if (focus.section == PanelSection::agents) {
        say("No agents yet",
            "An agent shows here once it asks with “kd ask” or tells of itself with “kd touch”.");
    } else if (focus.section == PanelSection::receipts) {
        const bool filtered = !focus.receiptFilter.empty();
        if (!content.receiptsRead)
            say("Reading", content.readError);
        else
            say(filtered ? "No such receipts" : "Nothing yet",
                filtered ? "Try fewer or other words."
                         : "Each answer and what came of it leaves a line here.");
    } else if (focus.section == PanelSection::results) {
        if (content.searched)
            say("Nothing found", "Try fewer or other words.");
        else
            say("Searching", content.readError);
    } else if (focus.only) {
        say("No card of " + focus.only->words + " waits", "Esc shows all cards.");
    } else {
        const bool failed = content.menu.body == MenuPanelContent::Body::failed;
        say(content.menu.title, content.menu.detail, failed ? Style::alert : Style::strong);
        if (content.menu.retry)
            out.push_back({{"  r", Style::accent}, {"  " + content.menu.retry->words, Style::strong}});
    }
    return out;
}

/// The list, with what is said before its first row.
Body drawList(const PanelContent& content, const PanelFocus& focus, const PanelLayout& layout, int height,
    int columns) {
    const auto& list = focus.list();
    Body body;
    body.lines.resize(static_cast<std::size_t>(height));
    const auto put = [&](int at, StyledLine line) {
        if (at >= 0 && at < height)
            body.lines[static_cast<std::size_t>(at)] = std::move(line);
    };
    if (list.empty()) {
        int at = 0;
        for (auto& line : emptyWords(content, focus, columns))
            put(at++, std::move(line));
        return body;
    }
    const auto selected = selectedLines(content, focus, layout, columns - gutter);
    const auto index = list.index();
    const int gap = list.rows()[index].height - (list.rows()[index].height > 1 ? PanelRules::listHeight : 1);
    const int extra = count(selected) + gap - list.rows()[index].height;
    body.listScroll = list.settledScroll(count(selected) + gap, height + gap);
    for (std::size_t i = 0; i < list.size(); ++i) {
        const int moved = i > index ? extra : 0;
        int at = list.line(i) + moved - body.listScroll;
        if (at >= height)
            break;
        const auto& row = list.rows()[i];
        if (i < index && at + row.height <= 0)
            continue;
        if (!row.heading.empty())
            put(at - 1, {{"  " + TerminalText::elide(row.heading, columns - gutter), Style::strong}});
        auto lines = i == index ? selected : briefRow(content, focus, i, false, columns - gutter);
        for (auto& line : lines) {
            line.insert(line.begin(), Span{i == index ? "▌ " : "  ", Style::accent});
            put(at++, std::move(line));
        }
    }
    const auto last = list.size() - 1;
    const int end = list.line(last) + list.rows()[last].height + extra - gap;
    body.above = body.listScroll > 0;
    body.below = end - body.listScroll > height;
    return body;
}

/// Lines that fill the middle, from a scroll on that fits.
Body drawText(StyledLines text, int scroll, int height) {
    Body body;
    body.scroll = std::clamp(scroll, 0, std::max(0, count(text) - height));
    body.above = body.scroll > 0;
    body.below = body.scroll + height < count(text);
    for (int i = 0; i < height; ++i) {
        const int at = body.scroll + i;
        body.lines.push_back(at < count(text) ? std::move(text[static_cast<std::size_t>(at)]) : StyledLine());
    }
    return body;
}

Body drawBeside(const PanelContent& content, const PanelFocus& focus, const PanelLayout& layout, int height) {
    auto body = drawList(content, focus, layout, height, layout.listColumns);
    auto beside = drawText(detail(content, focus, layout.detailColumns), focus.scroll, height);
    if (beside.below && height > 0)
        beside.lines.back() = {{"PgDn", Style::accent}, {"  shows the rest", Style::plain}};
    for (int i = 0; i < height; ++i) {
        auto& line = body.lines[static_cast<std::size_t>(i)];
        line = StyledText::padded(std::move(line), layout.listColumns);
        line.push_back({" │ ", Style::dim});
        for (auto& span : beside.lines[static_cast<std::size_t>(i)])
            line.push_back(std::move(span));
    }
    body.scroll = beside.scroll;
    return body;
}

StyledLines indented(StyledLines lines) {
    for (auto& line : lines)
        line.insert(line.begin(), Span{"  ", Style::plain});
    return lines;
}

} // namespace

Body draw(const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras,
    const PanelLayout& layout, int height, WallTime now) {
    const int columns = layout.wide ? layout.listColumns + 3 + layout.detailColumns : layout.listColumns;
    const int textColumns = std::min(columns, 96); // longer lines are hard to read
    if (focus.mode == Mode::help)
        return drawText(PanelKeys::help(textColumns), focus.scroll, height);
    if (focus.mode == Mode::card && content.card)
        return drawText(
            indented(SectionLines::card(*content.card, now, textColumns - 2 * gutter)), focus.scroll, height);
    if ((focus.mode == Mode::alert || focus.mode == Mode::question) && extras.alert) {
        StyledLines text;
        paragraph(text, TerminalText::clean(extras.alert->title), Style::alert, gutter, textColumns);
        paragraph(text, TerminalText::clean(extras.alert->text), Style::plain, gutter, textColumns);
        return drawText(std::move(text), focus.scroll, height);
    }
    if (layout.wide && !focus.list().empty())
        return drawBeside(content, focus, layout, height);
    return drawList(content, focus, layout, height, columns);
}

int wanted(const PanelContent& content, const PanelFocus& focus, const PanelLayout& layout) {
    constexpr int everything = 1000;
    if (focus.mode != Mode::rows && focus.mode != Mode::typing)
        return everything;
    const auto& list = focus.list();
    if (list.empty())
        return count(emptyWords(content, focus, layout.listColumns));
    const auto last = list.size() - 1;
    const int rows = list.line(last) + list.rows()[last].height;
    if (layout.wide)
        return std::max(rows, count(detail(content, focus, layout.detailColumns)));
    return rows + count(selectedLines(content, focus, layout, layout.listColumns - gutter));
}

} // namespace kelvadrome::PanelBody
