#include "Kelvadrome/terminal/panel/PanelView.h"

#include "Kelvadrome/terminal/panel/PanelRows.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <fmt/format.h>

#include <algorithm>

namespace kelvadrome {

std::string plainText(const StyledLine& line) {
    std::string text;
    for (const auto& span : line)
        text += span.text;
    return text;
}

namespace PanelView {

namespace {

using Lines = std::vector<StyledLine>;
using Mode = PanelFocus::Mode;

constexpr int indent = 2;
constexpr int wantedBody = 4; // lines that the body gets before the agents get any
constexpr std::size_t longestError = 3;

/// The lines of the middle, and which of them the selected row takes.
struct Body {
    Lines lines;
    int from = 0;
    int to = 0;
};

StyledLine rule(int columns, const char* end = "") {
    const int room = columns - TerminalText::width(end);
    std::string line;
    for (int i = 0; i < room; ++i)
        line += "─";
    return {{line + end, Style::dim}};
}

void appendPanelLine(Lines& out, const PanelLine& line, const char* key, int columns) {
    PanelRows::paragraph(out, line.title, Style::strong, indent, columns);
    if (!line.detail.empty())
        PanelRows::paragraph(out, line.detail, Style::dim, indent, columns);
    out.push_back({{std::string("  ") + key, Style::accent}, {"  opens it", Style::dim}});
    out.emplace_back();
}

Body bodyOf(
    const MenuPanelContent& content, const PanelFocus& focus, const PanelExtras& extras, int columns) {
    Body body;
    if (focus.mode == Mode::help) {
        body.lines = PanelRows::help(columns);
        return body;
    }
    if ((focus.mode == Mode::alert || focus.mode == Mode::question) && extras.alert) {
        PanelRows::paragraph(
            body.lines, TerminalText::clean(extras.alert->title), Style::alert, indent, columns);
        PanelRows::paragraph(
            body.lines, TerminalText::clean(extras.alert->text), Style::plain, indent, columns);
        return body;
    }
    if (content.setup)
        appendPanelLine(body.lines, *content.setup, "f", columns);
    if (content.background)
        appendPanelLine(body.lines, *content.background, "b", columns);
    if (content.body != MenuPanelContent::Body::rows) {
        const bool failed = content.body == MenuPanelContent::Body::failed;
        PanelRows::paragraph(
            body.lines, content.title, failed ? Style::alert : Style::strong, indent, columns);
        if (!content.detail.empty()) {
            PanelRows::paragraph(body.lines, TerminalText::clean(content.detail),
                failed ? Style::plain : Style::dim, indent, columns);
        }
        if (content.retry) {
            body.lines.push_back({{"  r", Style::accent}, {"  " + content.retry->words, Style::strong}});
        }
    }
    for (const auto& row : content.rows) {
        const bool selected = focus.selected && cardOf(row).id == *focus.selected;
        if (!body.lines.empty() && !plainText(body.lines.back()).empty())
            body.lines.emplace_back();
        const int from = static_cast<int>(body.lines.size());
        for (auto& line : PanelRows::row(row, selected, focus, columns))
            body.lines.push_back(std::move(line));
        if (!selected)
            continue;
        // Above the first row may stand the setup lines: they are seen with it when there is room.
        body.from = &row == &content.rows.front() ? 0 : from;
        body.to = static_cast<int>(body.lines.size());
    }
    if (!content.pressed.empty())
        body.lines.emplace_back();
    for (const auto& line : content.pressed)
        PanelRows::paragraph(body.lines, TerminalText::cleanLine(line), Style::warn, indent, columns);
    return body;
}

/// Where the body's first visible line is, so that the selected row shows: whole, or as far as was scrolled.
int scrollOf(const Body& body, int wanted, int height) {
    int low = body.to - height;
    int high = body.from;
    if (low > high)
        std::swap(low, high);
    const int last = std::max(0, static_cast<int>(body.lines.size()) - height);
    if (body.to == 0)
        return std::clamp(wanted, 0, last);
    return std::clamp(std::clamp(wanted, low, high), 0, last);
}

Lines topOf(const MenuPanelContent& content, int columns) {
    Lines top;
    top.push_back(
        PanelRows::spread({{"  " + content.header, Style::strong}}, {{"kelvadrome", Style::dim}}, columns));
    top.push_back(PanelRows::spread({{"  " + content.relief, Style::dim}}, {}, columns));
    return top;
}

/// What stands between the body and the last two lines, the agents not counted.
Lines blocksOf(const PanelFocus& focus, const MenuPanelContent& content, const PanelExtras& extras,
    ScreenSize size, std::optional<Picture::Cursor>& cursor) {
    Lines lines;
    if (content.error) {
        PanelRows::paragraph(lines, "⚠ " + TerminalText::cleanLine(*content.error), Style::alert, indent,
            size.columns, longestError);
    }
    if (extras.note) {
        PanelRows::paragraph(
            lines, TerminalText::cleanLine(*extras.note), Style::warn, indent, size.columns, longestError);
    }
    if (extras.link) {
        for (auto& line : PanelRows::link(*extras.link, size.columns))
            lines.push_back(std::move(line));
    }
    if (focus.mode == Mode::typing && focus.typingTo) {
        const auto title = focus.typingGone
                               ? std::string("This question has changed or is answered.")
                               : "Your answer to " + TerminalText::cleanLine(focus.typingTo->agent);
        PanelRows::paragraph(
            lines, title, focus.typingGone ? Style::warn : Style::strong, indent, size.columns, 1);
        Picture::Cursor at;
        auto editor = PanelRows::editor(focus, size.columns, std::max(1, size.rows / 3), at);
        at.row += static_cast<int>(lines.size());
        cursor = at;
        for (auto& line : editor)
            lines.push_back(std::move(line));
    }
    return lines;
}

Lines endOf(
    const MenuPanelContent& content, const PanelFocus& focus, const PanelExtras& extras, int columns) {
    StyledLine more;
    if (content.more)
        more.push_back({*content.more, Style::dim});
    Lines end;
    end.push_back(PanelRows::spread(
        {{"  o", Style::accent}, {" " + content.open.words, Style::plain}}, std::move(more), columns));
    if (focus.hint.empty() && focus.digits.empty()) {
        end.push_back(PanelRows::keys(content, focus, extras, columns));
    } else {
        const auto words =
            focus.hint.empty() ? "Option " + focus.digits + "_  another digit, or Enter" : focus.hint;
        end.push_back(PanelRows::spread({{"  " + words, Style::warn}}, {}, columns));
    }
    return end;
}

Picture tooSmall(const MenuPanelContent& content, ScreenSize size) {
    Picture picture;
    const auto words =
        fmt::format("{}. kelvadrome needs {} columns and {} lines; this terminal has {} and {}.",
            content.header, smallest.columns, smallest.rows, size.columns, size.rows);
    PanelRows::paragraph(picture.lines, words, Style::plain, 0, std::max(1, size.columns));
    picture.lines.resize(static_cast<std::size_t>(std::max(0, size.rows)));
    return picture;
}

} // namespace

Picture draw(
    const MenuPanelContent& content, const PanelFocus& focus, const PanelExtras& extras, ScreenSize size) {
    if (size.rows < smallest.rows || size.columns < smallest.columns)
        return tooSmall(content, size);
    Picture picture;
    auto top = topOf(content, size.columns);
    auto blocks = blocksOf(focus, content, extras, size, picture.cursor);
    auto end = endOf(content, focus, extras, size.columns);
    const auto body = bodyOf(content, focus, extras, size.columns);

    // The rules go first when it gets tight, then the upper lines of what is above the end.
    const auto count = [](const Lines& lines) { return static_cast<int>(lines.size()); };
    const int fixed = count(top) + count(end);
    const int rules = size.rows - fixed - count(blocks) - 2 >= 2 ? 2 : 0;
    if (fixed + count(blocks) > size.rows) {
        const int over = fixed + count(blocks) - size.rows;
        blocks.erase(blocks.begin(), blocks.begin() + over);
        if (picture.cursor)
            picture.cursor->row -= over;
    }
    const int room = size.rows - fixed - rules - count(blocks);
    const int wanted = std::min(count(body.lines), room);
    const int agentCount = std::clamp(
        room - std::max(wanted, std::min(wantedBody, room)), 0, static_cast<int>(content.agents.size()));
    auto agents = PanelRows::agents(content.agents, static_cast<std::size_t>(agentCount), size.columns);

    picture.page = room - count(agents);
    picture.scroll = scrollOf(body, focus.scroll, picture.page);
    const bool above = picture.scroll > 0;
    const bool below = picture.scroll + picture.page < count(body.lines);

    auto& lines = picture.lines;
    const auto append = [&](Lines& more) {
        for (auto& line : more)
            lines.push_back(std::move(line));
    };
    append(top);
    if (rules)
        lines.push_back(rule(size.columns, above ? " ↑ more ─" : ""));
    for (int i = 0; i < picture.page; ++i) {
        const int at = picture.scroll + i;
        lines.push_back(at < count(body.lines) ? body.lines[static_cast<std::size_t>(at)] : StyledLine());
    }
    if (rules)
        lines.push_back(rule(size.columns, below ? " ↓ more ─" : ""));
    append(agents);
    if (picture.cursor)
        picture.cursor->row += count(lines);
    append(blocks);
    append(end);
    return picture;
}

} // namespace PanelView

} // namespace kelvadrome
