#include "Kelvadrome/gtk/bar/BarIcons.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace kelvadrome {

std::string barIcon(const std::string& symbol) {
    using Icon = std::pair<std::string_view, const char*>;
    static constexpr std::array<Icon, 11> icons{{
        {"arrow.turn.down.right", "go-next-symbolic"},
        {"rectangle.split.3x1", "view-grid-symbolic"},
        {"checkmark.seal", "object-select-symbolic"},
        {"questionmark.bubble", "dialog-question-symbolic"},
        {"exclamationmark.circle", "dialog-warning-symbolic"},
        {"macwindow", "focus-windows-symbolic"},
        {"rectangle.dashed", "edit-select-all-symbolic"},
        {"mic.fill", "audio-input-microphone-symbolic"},
        {"stop.fill", "media-playback-stop-symbolic"},
        {"waveform", "microphone-sensitivity-muted-symbolic"},
        {"xmark", "window-close-symbolic"},
    }};
    const auto* const found = std::ranges::find(icons, symbol, &Icon::first);
    return found == icons.end() ? "image-missing" : found->second;
}

} // namespace kelvadrome
