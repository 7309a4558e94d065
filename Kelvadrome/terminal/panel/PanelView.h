#pragma once

#include "Kelvadrome/terminal/panel/PanelContent.h"
#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/StyledText.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// A login link on the screen.
struct PanelLink {
    std::string title;       // what it opens
    std::string url;         // empty while it is being made
    std::string tunnel = {}; // the command that makes it work on another machine; empty when none is needed
    std::vector<std::string> notes = {}; // below it

    bool operator==(const PanelLink&) const = default;
};

/// A message that waits for the user; with a second answer it is a question.
struct PanelAlert {
    std::string title;
    std::string text;
    std::string button;
    std::optional<std::string> refuse = {}; // of a question: the answer that changes nothing

    bool operator==(const PanelAlert&) const = default;
};

/// What the terminal shows beside the panel's content.
struct PanelExtras {
    std::optional<PanelLink> link;
    std::optional<PanelAlert> alert;
    std::optional<std::string> note; // from the terminal's own ends, such as a link that couldn't be made
};

/// A whole screen: exactly `rows` lines of at most `columns` columns.
struct Picture {
    StyledLines lines;
    std::optional<CommandLine::Place> cursor = {}; // absent hides it
    int listScroll = 0;                            // of the list, as it came out
    int scroll = 0; // of what stands beside it, or of a text that fills the screen
    int page = 0;   // lines of the middle that show
};

namespace PanelView {

inline constexpr ScreenSize smallest{10, 40};

/// Pure. Fits every size; below `smallest` it only says so.
Picture draw(const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras, ScreenSize size,
    WallTime now);

} // namespace PanelView

} // namespace kelvadrome
