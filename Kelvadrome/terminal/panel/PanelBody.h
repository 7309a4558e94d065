#pragma once

#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/PanelView.h"

/// The middle of the screen. Pure.
namespace kelvadrome::PanelBody {

/// Exactly as many lines as were asked for.
struct Body {
    StyledLines lines;
    int listScroll = 0;
    int scroll = 0;
    bool above = false; // there is more above
    bool below = false;
};

Body draw(const PanelContent& content, const PanelFocus& focus, const PanelExtras& extras,
    const PanelLayout& layout, int height, WallTime now);
/// How many lines it could use.
int wanted(const PanelContent& content, const PanelFocus& focus, const PanelLayout& layout);

} // namespace kelvadrome::PanelBody
