#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/platform/linux/desk/StatusNotifierItem.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace kelvadrome {

/// The item in the tray: the count of what needs the user, the panel behind a press, and a menu.
class TrayIcon {
public:
    struct Presses {
        std::function<void(std::optional<std::pair<int, int>> place)> panel;
        std::function<void()> settings;
        std::function<void()> quit;
    };

    TrayIcon(std::shared_ptr<SessionBus> bus, std::shared_ptr<AppModel> model, Presses presses);

    void show(const AppState& state);
    /// Whether some tray shows it, as far as is known.
    bool hosted() const { return item_.hosted(); }

private:
    std::vector<BusMenuEntry> menu(const AppState& state);
    void openPanel(const StatusNotifierItem::Press& press);

    std::shared_ptr<AppModel> model_;
    Presses presses_;
    StatusNotifierItem item_;
    std::int64_t drawn_ = 0; // the count that `images_` show; none for 0, where the icon is its own
    std::vector<StatusNotifierItem::Pixmap> images_;
};

} // namespace kelvadrome
