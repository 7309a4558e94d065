#include "Kelvadrome/terminal/panel/CommandLine.h"

#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <algorithm>
#include <utility>

namespace kelvadrome {

namespace {

constexpr int markColumns = 2;

} // namespace

void CommandLine::open(Purpose purpose, const std::string& text) {
    purpose_ = purpose;
    editor_.clear();
    editor_.insert(text);
}

CommandLine::Effect CommandLine::press(const Key& key, bool pasting) {
    using Kind = Key::Kind;
    if (pasting && key.kind != Kind::text) {
        if (key.kind != Kind::enter && key.kind != Kind::tab)
            return Effect::none;
        return editor_.insert(" ") ? Effect::edited : Effect::full;
    }
    switch (key.kind) {
    case Kind::text:
        return editor_.insert(key.text) ? Effect::edited : Effect::full;
    case Kind::enter:
        return Effect::submit;
    case Kind::escape:
        return Effect::leave;
    case Kind::backspace:
        editor_.backspace();
        return Effect::edited;
    case Kind::remove:
        editor_.deleteForward();
        return Effect::edited;
    case Kind::left:
        editor_.left();
        return Effect::none;
    case Kind::right:
        editor_.right();
        return Effect::none;
    case Kind::home:
        editor_.home();
        return Effect::none;
    case Kind::end:
        editor_.end();
        return Effect::none;
    case Kind::control:
        return pressControl(key.text);
    default:
        return Effect::other;
    }
}

CommandLine::Effect CommandLine::pressControl(const std::string& letter) {
    static constexpr std::pair<char, void (LineEditor::*)()> moves[] = {{'a', &LineEditor::home},
        {'e', &LineEditor::end}, {'b', &LineEditor::left}, {'f', &LineEditor::right}};
    static constexpr std::pair<char, void (LineEditor::*)()> edits[] = {{'d', &LineEditor::deleteForward},
        {'u', &LineEditor::killToStart}, {'k', &LineEditor::killToEnd}, {'w', &LineEditor::killWord}};
    const char wanted = letter.empty() ? '\0' : letter[0];
    for (const auto& [key, act] : moves) {
        if (key != wanted)
            continue;
        (editor_.*act)();
        return Effect::none;
    }
    for (const auto& [key, act] : edits) {
        if (key != wanted)
            continue;
        (editor_.*act)();
        return Effect::edited;
    }
    return Effect::other;
}

StyledLines CommandLine::draw(const Prompt& prompt, int columns, int maxLines, Place& cursor) const {
    StyledLines lines;
    const int width = std::max(1, columns - markColumns - 1); // a column for the cursor behind a full line
    std::string line;
    int used = 0;
    std::size_t at = 0;
    bool placed = false;
    const auto place = [&] {
        cursor = {static_cast<int>(lines.size()), markColumns + used};
        placed = true;
    };
    const auto end = [&] {
        lines.push_back(
            {{lines.empty() ? prompt.mark : "  ", Style::accent}, {std::exchange(line, {}), Style::plain}});
        used = 0;
    };
    for (const auto& cluster : TerminalText::clusters(editor_.text())) {
        if (used + cluster.width > width)
            end();
        if (at == editor_.cursor())
            place();
        line += cluster.text;
        used += cluster.width;
        at += cluster.text.size();
    }
    if (!placed)
        place();
    end();
    if (editor_.text().empty())
        lines.back() = StyledText::cut({lines.back().front(), {prompt.placeholder, Style::dim}}, columns);
    if (static_cast<int>(lines.size()) > maxLines) {
        const int first = std::clamp(cursor.row - maxLines + 1, 0, static_cast<int>(lines.size()) - maxLines);
        lines.erase(lines.begin(), lines.begin() + first);
        lines.resize(static_cast<std::size_t>(maxLines));
        cursor.row -= first;
    }
    return lines;
}

} // namespace kelvadrome
