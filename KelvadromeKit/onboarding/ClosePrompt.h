#pragma once

#include <string>

namespace kelvadrome {

/// What a window asks before it closes: the question, the button that closes it, the button that doesn't.
struct ClosePrompt {
    std::string title;
    std::string confirm;
    std::string cancel;

    static const ClosePrompt finishLater;
    /// The smaller text under `finishLater`.
    static constexpr const char* finishLaterDetail =
        "kelvadrome keeps a Finish setup line in the menu bar until you are done.";

    bool operator==(const ClosePrompt&) const = default;
};

inline const ClosePrompt ClosePrompt::finishLater{"Finish setup later?", "Finish later", "Keep going"};

} // namespace kelvadrome
