#pragma once

#include <string>

namespace kelvadrome {

/// One key as the terminal told it.
struct Key {
    enum class Kind {
        text,    // a character, or any text while a paste lasts
        control, // Ctrl with the letter in `text`, lower-case
        enter,
        escape,
        tab,
        backTab,
        up,
        down,
        left,
        right,
        home,
        end,
        pageUp,
        pageDown,
        backspace,
        remove,
        pasteBegin,
        pasteEnd,
    };

    Kind kind = Kind::text;
    std::string text = {};
};

} // namespace kelvadrome
