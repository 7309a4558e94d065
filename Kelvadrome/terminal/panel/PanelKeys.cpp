#include "Kelvadrome/terminal/panel/PanelKeys.h"

#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

namespace kelvadrome::PanelKeys {

namespace {

using Mode = PanelFocus::Mode;
using Purpose = CommandLine::Purpose;

/// Without words it is the heading of those that follow.
struct KeyWords {
    const char* key;
    const char* words;
};

constexpr std::array allKeys = std::to_array<KeyWords>({
    {"On a card", nullptr},
    {"1-9", "choose an option by its number"},
    {"a", "accept what is suggested, or all defaults (also d)"},
    {"t", "type an answer"},
    {"u", "undo an answer while it is on hold"},
    {"z", "snooze it for 30 minutes, or wake it"},
    {"x", "dismiss it without an answer; x again to do it"},
    {"v", "review it in kelvadrome"},
    {"w", "bring its agent's terminal to the front"},
    {"e", "bring Edge to front"},
    {"Enter", "show all of it, or less (also Space)"},
    {"Moving", nullptr},
    {"↑ ↓", "next and previous row (also k, j)"},
    {"Home End", "first and last row"},
    {"^U ^D", "ten rows up and down"},
    {"PgUp PgDn", "a page; in a long card through its text"},
    {"Tab", "next section; Shift-Tab the one before"},
    {"i", "Inbox"},
    {"g", "Agents: Enter shows an agent's cards"},
    {"h", "Receipts: F filters them, Enter shows the card"},
    {"/", "ask an agent or search; Enter asks or opens, Tab lists all results"},
    {"Esc", "leave what lies on top"},
    {"While typing", nullptr},
    {"Enter", "send; Esc leaves and keeps your words"},
    {"^A ^E", "start and end of the line"},
    {"^B ^F", "one character left and right"},
    {"^U ^K", "delete to the start, to the end"},
    {"^W ^D", "delete a word, the next character"},
    {"Kelvadrome", nullptr},
    {"o", "open kelvadrome in a browser"},
    {"y", "copy the link that shows"},
    {"Y", "copy its ssh command"},
    {"r", "try again, when the daemon is away"},
    {"f", "finish setup"},
    {"b", "background permission"},
    {"^L", "draw again"},
    {"^Z", "stop until you type fg"},
    {"?", "this help"},
    {"q", "quit (also ^C)"},
});

using Items = std::vector<KeyWords>;

Items itemsOfCard(const PanelEntry& row, const PanelFocus& focus, bool wide) {
    Items items;
    const auto* const card = row.card();
    if (!card) {
        if (row.hold()->undo)
            items.push_back({"u", "undo"});
        return items;
    }
    if (card->offers(PanelAction::Kind::undo))
        items.push_back({"u", "undo"});
    if (card->takesAnswer() && !card->card.options.empty())
        items.push_back({"1-9", "choose"});
    if (card->takesAnswer() && card->card.kind != "batch")
        items.push_back({"t", "type"});
    if (card->way.empty()) {
        items.push_back({"z", row.group == PanelEntry::Group::snoozed ? "wake" : "snooze"});
        items.push_back({"x", "dismiss"});
    }
    if (!card->offers(PanelAction::Kind::review))
        items.push_back({"v", "review"});
    if (!wide)
        items.push_back({"Enter", focus.expanded ? "less" : "more"});
    return items;
}

Items itemsOfRows(
    const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras, bool wide) {
    Items items;
    if (content.menu.retry && focus.section == PanelSection::inbox)
        items.push_back(
            {"r", content.menu.body == MenuPanelContent::Body::failed ? "try again" : "start it here"});
    if (extras.link) {
        items.push_back({"y", "copy"});
        if (!extras.link->tunnel.empty())
            items.push_back({"Y", "copy ssh"});
        items.push_back({"Esc", "close"});
    }
    if (focus.section == PanelSection::agents && !focus.agents.empty()) {
        items.push_back({"Enter", "its cards"});
        items.push_back({"w", "its terminal"});
    }
    if (focus.section == PanelSection::receipts) {
        items.push_back({"F", "filter"});
        items.push_back({"Enter", "its card"});
    }
    if (focus.section == PanelSection::inbox && !focus.inbox.empty()) {
        for (const auto& item : itemsOfCard(content.inbox[focus.inbox.index()], focus, wide))
            items.push_back(item);
    }
    if (focus.section == PanelSection::inbox && focus.only)
        items.push_back({"Esc", "all"});
    if (focus.section == PanelSection::results) {
        items.push_back({"Enter", "open"});
        items.push_back({"Esc", "inbox"});
    }
    items.push_back({"/", "ask"});
    items.push_back({"Tab", "section"});
    return items;
}

Items itemsOfBar(const PanelContent& content, const PanelFocus& focus) {
    if (focus.line.blank())
        return {{"Esc", "leave"}};
    if (content.bar.proposal)
        return {{"Enter", "open"}, {"Esc", "leave"}, {"^U", "clear"}};
    return {{"Enter", content.bar.selection == 0 ? "ask" : "open"}, {"Esc", "leave"}, {"↑↓", "pick"},
        {"Tab", "all results"}, {"^U", "clear"}};
}

Items itemsOf(const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras, bool wide) {
    switch (focus.mode) {
    case Mode::typing:
        if (focus.line.purpose() == Purpose::answer)
            return {{"Enter", "send"}, {"Esc", "leave"}, {"^U", "clear"}, {"^W", "word"}};
        if (focus.line.purpose() == Purpose::bar)
            return itemsOfBar(content, focus);
        return {{"Enter", "keep"}, {"Esc", "clear"}, {"↑↓", "pick"}};
    case Mode::alert:
        return {{"Enter", extras.alert ? extras.alert->button.c_str() : "OK"}};
    case Mode::question:
        if (!extras.alert || !extras.alert->refuse)
            return {};
        return {{"Enter", extras.alert->refuse->c_str()}, {"q", extras.alert->button.c_str()}};
    case Mode::help:
    case Mode::card:
        return {{"↑↓", "scroll"}, {"any other key", "back"}};
    case Mode::rows:
        break;
    }
    return itemsOfRows(content, focus, extras, wide);
}

} // namespace

StyledLine line(
    const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras, int columns) {
    StyledLine ends;
    if (focus.mode == Mode::rows)
        ends = {{"?", Style::accent}, {" keys  ", Style::dim}, {"q", Style::accent}, {" quit", Style::dim}};
    StyledLine line{{"  ", Style::plain}};
    const int room = columns - StyledText::widthOf(ends) - (ends.empty() ? 0 : 2);
    const bool wide = PanelLayout::of({0, columns}).wide;
    for (const auto& item : itemsOf(content, focus, extras, wide)) {
        StyledLine next{{item.key, Style::accent}, {std::string(" ") + item.words, Style::dim}};
        const int gap = line.size() > 1 ? 2 : 0;
        if (StyledText::widthOf(line) + gap + StyledText::widthOf(next) > room)
            break;
        if (gap > 0)
            line.push_back({"  ", Style::plain});
        line.insert(line.end(), next.begin(), next.end());
    }
    return ends.empty() ? line : StyledText::spread(std::move(line), ends, columns);
}

StyledLines help(int columns) {
    constexpr int indent = 2;
    constexpr int keyColumns = 11;
    StyledLines lines;
    for (const auto& item : allKeys) {
        if (!item.words) {
            if (!lines.empty())
                lines.emplace_back();
            lines.push_back({{std::string("  ") + item.key, Style::strong}});
            continue;
        }
        std::string key = item.key;
        for (auto& words : TerminalText::wrap(item.words, columns - indent - keyColumns)) {
            key.append(static_cast<std::size_t>(keyColumns - TerminalText::width(key)), ' ');
            lines.push_back({{"  ", Style::plain}, {std::exchange(key, {}), Style::accent},
                {std::move(words), Style::plain}});
        }
    }
    return lines;
}

} // namespace kelvadrome::PanelKeys
