#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kelvadrome {

/// One row of the tray item's menu.
struct TrayMenuEntry {
    std::int32_t id = 0; // above 0, its own in the menu; the same row keeps its id
    std::string label = {};
    bool enabled = true;
    bool checkable = false;
    bool checked = false; // a press doesn't change it: the owner shows the new state
    bool separator = false;
    std::function<void()> pressed = {};
};

/// The item in the desktop's tray. Many desktops have no tray, so it is never the only way in. Main thread.
class TrayItem {
public:
    enum class Status { passive, active, needsAttention };

    /// Straight alpha, the bytes A R G B, row after row.
    struct Pixmap {
        std::int32_t width = 0;
        std::int32_t height = 0;
        std::string bytes = {};

        bool operator==(const Pixmap&) const = default;
    };

    struct State {
        std::string title = "kelvadrome";
        std::string label = {};   // beside the icon, where a host shows one: the count, say
        std::string tooltip = {}; // under the title
        Status status = Status::active;
        /// Drawn for this state, such as the icon with a count on it: what a host shows while attention is
        /// needed, and for the icon where it doesn't find the name. Empty for the icon's own.
        std::vector<Pixmap> pixmaps = {};

        bool operator==(const State&) const = default;
    };

    /// Where the pointer was, in the screen's coordinates (0, 0 when unknown), and what lets a window come to
    /// the front on Wayland (often empty).
    struct Press {
        std::int32_t x = 0;
        std::int32_t y = 0;
        std::string activationToken = {};
    };
    struct Presses {
        std::function<void(Press)> activate = {};
        std::function<void(Press)> secondary = {};
        std::function<void(Press)> contextMenu = {}; // only from hosts that don't read the menu
    };

    virtual ~TrayItem() = default;

    virtual void show(State state) = 0;
    virtual void setMenu(std::vector<TrayMenuEntry> entries) = 0;
    /// What a host gave for a press that is no call of the item's, such as one in its menu; mostly empty.
    virtual std::string takeActivationToken() = 0;
    /// Whether some tray shows the item, as far as is known.
    virtual bool hosted() const = 0;
};

} // namespace kelvadrome
