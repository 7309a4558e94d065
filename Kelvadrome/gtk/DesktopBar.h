#pragma once

#include "Kelvadrome/gtk/bar/BarPanel.h"
#include "Kelvadrome/hub/LocalHub.h"
#include "Kelvadrome/model/BarHotkey.h"
#include "Kelvadrome/model/VoiceModel.h"
#include "Kelvadrome/platform/linux/desk/CaptureTools.h"
#include "Kelvadrome/platform/linux/desk/DesktopWindows.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// The command bar of this desktop, put together: its state, its window, its key, and what it asks of the
/// machine. Goes before the hub.
class DesktopBar {
public:
    /// `voice` may be null: the bar is then for typing.
    DesktopBar(const LocalHub& hub, std::shared_ptr<SessionBus> bus, std::shared_ptr<AppModel> model,
        std::shared_ptr<VoiceModel> voice, std::function<void(Gtk::Window&)> adopt);

    /// Opens the bar, with these words in its field when given.
    void open(const std::optional<std::string>& text) { controller_->open(text); }
    void toggle() { controller_->toggle(); }
    /// Ends what is under way, such as a drag that the user hasn't begun.
    void stop() { controller_->stop(); }
    const std::shared_ptr<BarHotkey>& key() const { return key_; }

private:
    void showKey();

    std::shared_ptr<DesktopWindows> windows_;
    std::shared_ptr<CaptureTools> capture_;
    std::shared_ptr<BarPanel> panel_;
    std::shared_ptr<CommandPanelController> controller_;
    std::unique_ptr<CommandPanelWindow> window_;
    std::shared_ptr<BarHotkey> key_;
    Subscription watchingKey_;
};

} // namespace kelvadrome
