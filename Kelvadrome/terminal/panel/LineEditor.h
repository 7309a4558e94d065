#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvadrome {

/// One line of text under a cursor, which never stands inside a character. It holds nothing that can't be
/// seen: what `text` gives is what the user read.
class LineEditor {
public:
    static constexpr std::size_t limit = 4000; // characters

    /// Line feeds and tabs become blanks, other controls are dropped. False when not all of it fitted.
    bool insert(std::string_view text);
    void backspace();
    void deleteForward();
    void left();
    void right();
    void home() { cursor_ = 0; }
    void end() { cursor_ = text_.size(); }
    void killToStart();
    void killToEnd();
    /// Deletes the word before the cursor, with the blanks behind it.
    void killWord();
    void clear();

    const std::string& text() const { return text_; }
    std::size_t cursor() const { return cursor_; } // in bytes
    bool blank() const { return text_.find_first_not_of(' ') == std::string::npos; }

    bool operator==(const LineEditor&) const = default;

private:
    std::size_t before() const;
    std::size_t after() const;

    std::string text_;
    std::size_t cursor_ = 0;
};

} // namespace kelvadrome
