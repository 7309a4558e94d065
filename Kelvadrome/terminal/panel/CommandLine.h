#pragma once

#include "Kelvadrome/terminal/panel/Key.h"
#include "Kelvadrome/terminal/panel/LineEditor.h"
#include "Kelvadrome/terminal/panel/StyledText.h"

#include <string>

namespace kelvadrome {

/// The line at the bottom in which the user types. All that is typed goes through it, whatever it is for; a
/// new purpose needs a prompt, and what Enter does.
class CommandLine {
public:
    enum class Purpose { none, answer, bar, receiptFilter };
    /// What a key did. `other` is a key that isn't the line's.
    enum class Effect { none, edited, full, submit, leave, other };

    struct Prompt {
        std::string mark;        // before the text, two columns wide
        std::string placeholder; // in place of an empty text
    };

    struct Place {
        int row = 0;
        int column = 0;
    };

    void open(Purpose purpose, const std::string& text);
    void close() { *this = {}; }
    /// A line end of a paste is a blank; its other controls are nothing.
    Effect press(const Key& key, bool pasting);

    Purpose purpose() const { return purpose_; }
    bool isOpen() const { return purpose_ != Purpose::none; }
    const std::string& text() const { return editor_.text(); }
    bool blank() const { return editor_.blank(); }

    /// At most `maxLines` lines, those around the cursor; `cursor` is relative to the first of them.
    StyledLines draw(const Prompt& prompt, int columns, int maxLines, Place& cursor) const;

    bool operator==(const CommandLine&) const = default;

private:
    Effect pressControl(const std::string& letter);

    Purpose purpose_ = Purpose::none;
    LineEditor editor_;
};

} // namespace kelvadrome
