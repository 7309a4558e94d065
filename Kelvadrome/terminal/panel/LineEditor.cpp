#include "Kelvadrome/terminal/panel/LineEditor.h"

#include "Kelvadrome/terminal/panel/TerminalText.h"
#include "KelvadromeKit/support/Text.h"

#include <utility>

namespace kelvadrome {

namespace {

std::string insertable(std::string_view text) {
    std::u32string kept;
    bool afterReturn = false; // "\r\n" is one line end
    for (const char32_t c : Text::scalars(text)) {
        if (c == '\r' || c == '\t' || (c == '\n' && !afterReturn)) {
            kept += U' ';
        } else if (c >= 0x20 && !(c >= 0x7F && c < 0xA0)) {
            kept += c;
        }
        afterReturn = c == '\r';
    }
    return Text::fromScalars(kept);
}

} // namespace

bool LineEditor::insert(std::string_view text) {
    auto added = insertable(text);
    const auto count = Text::characterCount(text_);
    const auto room = count < limit ? limit - count : 0;
    const auto fitting = Text::prefix(added, room);
    const bool whole = fitting.size() == added.size();
    added.resize(fitting.size());

    // A mark joins the character before the cursor, so only the parts together are known to be safe to show.
    auto joined = TerminalText::clean(text_.substr(0, cursor_) + added);
    const auto rest = text_.substr(cursor_);
    cursor_ = joined.size();
    text_ = std::move(joined) + rest;
    return whole;
}

std::size_t LineEditor::before() const {
    std::size_t start = 0;
    std::size_t at = 0;
    for (const auto& cluster : TerminalText::clusters(text_)) {
        if (at + cluster.text.size() >= cursor_)
            break;
        at += cluster.text.size();
        start = at;
    }
    return cursor_ == 0 ? 0 : start;
}

std::size_t LineEditor::after() const {
    std::size_t at = 0;
    for (const auto& cluster : TerminalText::clusters(text_)) {
        at += cluster.text.size();
        if (at > cursor_)
            return at;
    }
    return text_.size();
}

void LineEditor::backspace() {
    const auto from = before();
    text_.erase(from, cursor_ - from);
    cursor_ = from;
}

void LineEditor::deleteForward() {
    text_.erase(cursor_, after() - cursor_);
}

void LineEditor::left() {
    cursor_ = before();
}

void LineEditor::right() {
    cursor_ = after();
}

void LineEditor::killToStart() {
    text_.erase(0, cursor_);
    cursor_ = 0;
}

void LineEditor::killToEnd() {
    text_.resize(cursor_);
}

void LineEditor::killWord() {
    auto from = cursor_;
    while (from > 0 && text_[from - 1] == ' ')
        --from;
    while (from > 0 && text_[from - 1] != ' ')
        --from;
    text_.erase(from, cursor_ - from);
    cursor_ = from;
}

void LineEditor::clear() {
    text_.clear();
    cursor_ = 0;
}

} // namespace kelvadrome
