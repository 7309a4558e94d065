#include "Kelvadrome/terminal/panel/PanelView.h"

#include "Kelvadrome/terminal/panel/PanelBody.h"
#include "Kelvadrome/terminal/panel/PanelKeys.h"
#include "Kelvadrome/terminal/panel/SectionLines.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <fmt/format.h>

#include <algorithm>

namespace kelvadrome::PanelView {

namespace {

using Mode = PanelFocus::Mode;
using Purpose = CommandLine::Purpose;
using StyledText::append;
using StyledText::cut;
using StyledText::notice;
using StyledText::paragraph;
using StyledText::spread;
using TerminalText::clean;
using TerminalText::cleanLine;

constexpr int indent = 2;
constexpr int leastBody = 4;              // lines that the middle gets before the agents get any
constexpr std::size_t longestMessage = 3; // lines

int count(const StyledLines& lines) {
    return static_cast<int>(lines.size());
}

StyledLine tabs(PanelSection shown) {
    static constexpr const char* names[panelSections] = {"Inbox", "Agents", "Receipts"};
    StyledLine line;
    for (int i = 0; i < panelSections; ++i) {
        if (i > 0)
            line.push_back({" ", Style::plain});
        if (i == static_cast<int>(shown))
            line.push_back({std::string("[") + names[i] + "]", Style::accent});
        else
            line.push_back({names[i], Style::dim});
    }
    return line;
}

StyledLine underHeader(const PanelContent& content, const PanelFocus& focus, int columns) {
    StyledLine left{{"  " + content.menu.relief, Style::dim}};
    if (content.snoozed > 0)
        left.push_back({fmt::format(" · {} snoozed", content.snoozed), Style::dim});
    const auto& list = focus.list();
    const bool inBar = &list == &focus.bar;
    if (focus.section == PanelSection::inbox && focus.only)
        left = {{"  Only ", Style::dim}, {cleanLine(focus.only->words), Style::accent}};
    if (!inBar && focus.section == PanelSection::receipts && !focus.receiptFilter.empty())
        left = {{"  Only ", Style::dim}, {cleanLine(focus.receiptFilter), Style::accent}};
    if (!inBar && focus.section == PanelSection::results)
        left = {{"  Results for ", Style::dim}, {cleanLine(focus.searchedFor), Style::accent}};
    StyledLine right;
    const std::size_t ask = inBar ? 1 : 0; // a row that is no hit
    if (list.size() > 1 && list.index() >= ask)
        right.push_back({fmt::format("{} of {}{}", list.index() + 1 - ask, list.size() - ask,
                             focus.section == PanelSection::receipts && content.moreReceipts ? "+" : ""),
            Style::dim});
    return spread(std::move(left), std::move(right), columns);
}

/// Lines about the application itself: setup, the login item, a daemon that is away.
StyledLines banner(
    const PanelContent& content, const PanelFocus& focus, const PanelLayout& layout, int columns) {
    StyledLines out;
    if (focus.mode != Mode::rows && focus.mode != Mode::typing)
        return out;
    const auto offer = [&](const PanelLine& line, const char* key) {
        paragraph(out, std::string(key) + "  " + line.title, Style::strong, indent, columns);
        if (!line.detail.empty() && !layout.dense)
            paragraph(out, line.detail, Style::dim, indent + 3, columns);
    };
    if (content.menu.setup)
        offer(*content.menu.setup, "f");
    if (content.menu.background)
        offer(*content.menu.background, "b");
    using Body = MenuPanelContent::Body;
    const bool away = content.menu.body == Body::starting || content.menu.body == Body::failed;
    if (away && !(focus.section == PanelSection::inbox && content.inbox.empty())) {
        const auto detail = cleanLine(content.menu.detail);
        notice(
            out, content.menu.title + (detail.empty() ? "" : ". ") + detail, indent, columns, longestMessage);
    }
    return out;
}

StyledLines linkLines(const PanelLink& link, int columns) {
    StyledLines lines;
    paragraph(lines, link.title, Style::strong, indent, columns);
    // Not indented, so that a mark over their lines takes the text and nothing else.
    if (!link.tunnel.empty() && !link.url.empty()) {
        paragraph(lines, "On your machine first:", Style::dim, indent, columns);
        paragraph(lines, clean(link.tunnel), Style::accent, 0, columns);
        paragraph(lines, "Then, in a browser there:", Style::dim, indent, columns);
    }
    if (!link.url.empty())
        paragraph(lines, clean(link.url), Style::accent, 0, columns);
    for (const auto& note : link.notes)
        paragraph(lines, note, Style::dim, indent, columns);
    return lines;
}

/// What stands between the middle and the bottom, the agents not counted; the most important last.
StyledLines messages(
    const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras, int columns) {
    StyledLines lines;
    if (extras.link)
        append(lines, linkLines(*extras.link, columns));
    const auto say = [&](const std::string& text) {
        notice(lines, cleanLine(text), indent, columns, longestMessage);
    };
    const bool inbox = &focus.list() == &focus.inbox;
    for (const auto& line : inbox ? content.menu.pressed : content.underWay)
        say(line);
    if (!content.readError.empty() && !focus.list().empty())
        say(content.readError);
    if (extras.note)
        say(*extras.note);
    for (const auto& error : {content.menu.error, content.bar.error}) {
        if (error)
            paragraph(lines, "⚠ " + cleanLine(*error), Style::alert, indent, columns, longestMessage);
    }
    if (focus.typingTo && focus.typingGone)
        notice(lines, "This question has changed or is answered.", indent, columns, 1);
    else if (focus.typingTo)
        paragraph(
            lines, "Your answer to " + cleanLine(focus.typingTo->agent), Style::strong, indent, columns, 1);
    return lines;
}

CommandLine::Prompt promptOf(Purpose purpose) {
    switch (purpose) {
    case Purpose::bar:
        return {"/ ", CommandBar::placeholder};
    case Purpose::receiptFilter:
        return {"/ ", "words, agent:NAME, from:2026-01-31, to:2026-01-31"};
    case Purpose::answer:
    case Purpose::none:
        break;
    }
    return {"> ", "your answer, on one line"};
}

/// The line in which is typed; while nothing is, what the last key had to say, or the way to the page.
StyledLines bar(const PanelContent& content, const PanelFocus& focus, ScreenSize size,
    std::optional<CommandLine::Place>& cursor) {
    StyledLines lines;
    if (!focus.hint.empty())
        notice(lines, focus.hint, indent, size.columns, longestMessage);
    if (focus.mode == Mode::typing) {
        CommandLine::Place at;
        auto typed =
            focus.line.draw(promptOf(focus.line.purpose()), size.columns, std::max(1, size.rows / 3), at);
        cursor = {at.row + count(lines), at.column};
        append(lines, std::move(typed));
    } else if (!focus.digits.empty()) {
        lines.push_back(
            cut({{"  Option " + focus.digits + "_  another digit, or Enter", Style::plain}}, size.columns));
    } else if (lines.empty()) {
        lines.push_back(spread({{"  o", Style::accent}, {" " + content.menu.open.words, Style::plain}},
            {{"/", Style::accent}, {" ask or search", Style::dim}}, size.columns));
    }
    return lines;
}

Picture tooSmall(const PanelContent& content, ScreenSize size) {
    Picture picture;
    const auto words =
        fmt::format("{}. kelvadrome needs {} columns and {} lines; this terminal has {} and {}.",
            content.menu.header, smallest.columns, smallest.rows, size.columns, size.rows);
    paragraph(picture.lines, words, Style::plain, 0, std::max(1, size.columns));
    picture.lines.resize(static_cast<std::size_t>(std::max(0, size.rows)));
    return picture;
}

} // namespace

Picture draw(const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras, ScreenSize size,
    WallTime now) {
    if (size.rows < smallest.rows || size.columns < smallest.columns)
        return tooSmall(content, size);
    Picture picture;
    const auto layout = PanelLayout::of(size);
    StyledLines top{spread({{"  " + content.menu.header, Style::strong}}, tabs(focus.section), size.columns),
        underHeader(content, focus, size.columns)};
    append(top, banner(content, focus, layout, size.columns));
    auto between = messages(content, focus, extras, size.columns);
    auto bottom = bar(content, focus, size, picture.cursor);
    bottom.push_back(PanelKeys::line(content, focus, extras, size.columns));

    // The rules go first when it gets tight, then the upper lines of what is above the bottom.
    const int fixed = count(top) + count(bottom);
    const int rules = !layout.dense && size.rows - fixed - count(between) - 2 >= 2 ? 2 : 0;
    const int over = std::max(0, fixed + count(between) - size.rows);
    between.erase(between.begin(), between.begin() + std::min(over, count(between)));
    const int room = std::max(0, size.rows - fixed - rules - count(between));
    const int wanted = std::min(PanelBody::wanted(content, focus, layout), room);
    const int spare = room - std::max(wanted, std::min(leastBody, room));
    const bool lamps = focus.section == PanelSection::inbox && spare > 0;
    auto agents = SectionLines::lamps(
        content.agents, lamps ? static_cast<std::size_t>(spare) : 0, size.columns - indent);
    for (auto& line : agents)
        line.insert(line.begin(), Span{"  ", Style::plain});

    picture.page = room - count(agents);
    auto body = PanelBody::draw(content, focus, extras, layout, picture.page, now);
    picture.listScroll = body.listScroll;
    picture.scroll = body.scroll;
    auto& lines = picture.lines;
    append(lines, std::move(top));
    if (rules > 0)
        lines.push_back(StyledText::rule(size.columns, body.above ? " ↑ more ─" : ""));
    append(lines, std::move(body.lines));
    if (rules > 0)
        lines.push_back(StyledText::rule(size.columns, body.below ? " ↓ more ─" : ""));
    append(lines, std::move(agents));
    append(lines, std::move(between));
    if (picture.cursor)
        picture.cursor->row += count(lines);
    append(lines, std::move(bottom));
    if (count(lines) > size.rows) // a bottom that is higher than the screen
        lines.erase(lines.begin(), lines.begin() + (count(lines) - size.rows));
    if (picture.cursor)
        picture.cursor->row = std::min(picture.cursor->row, size.rows - 1);
    return picture;
}

} // namespace kelvadrome::PanelView
