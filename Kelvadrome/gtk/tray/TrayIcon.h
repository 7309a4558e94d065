#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/TrayItem.h"

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

    /// Gives the item with its own pictures, for hosts that don't find the icon by its name.
    using MakeItem =
        std::function<std::unique_ptr<TrayItem>(std::vector<TrayItem::Pixmap>, TrayItem::Presses)>;

    TrayIcon(const MakeItem& makeItem, std::shared_ptr<AppModel> model, Presses presses);

    void show(const AppState& state);
    /// Whether some tray shows it, as far as is known.
    bool hosted() const { return item_->hosted(); }

private:
    std::vector<TrayMenuEntry> menu(const AppState& state);
    void openPanel(const TrayItem::Press& press);

    std::shared_ptr<AppModel> model_;
    Presses presses_;
    std::unique_ptr<TrayItem> item_;
    std::int64_t drawn_ = 0; // the count that `images_` show; none for 0, where the icon is its own
    std::vector<TrayItem::Pixmap> images_;
};

} // namespace kelvadrome
