#pragma once

#include "Kelvadrome/platform/linux/desk/BusMenu.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using KdTrayItem = struct _KdTrayItem;

namespace kelvadrome {

/// The tray item, offered as org.kde.StatusNotifierItem with its menu to every watcher that
/// comes while we run. Main thread.
class StatusNotifierItem final : public TrayItem {
public:
    struct Icon {
        std::string name = "com.kelvadrome.mac-symbolic";
        std::string themePath = {};       // a folder that holds "hicolor"; empty when the icon is installed
        std::vector<Pixmap> pixmaps = {}; // for hosts that don't find the name
    };

    StatusNotifierItem(std::shared_ptr<SessionBus> bus, Icon icon, Presses presses);
    ~StatusNotifierItem() override;
    StatusNotifierItem(const StatusNotifierItem&) = delete;
    StatusNotifierItem& operator=(const StatusNotifierItem&) = delete;

    void show(State state) override;
    void setMenu(std::vector<TrayMenuEntry> entries) override { menu_.show(std::move(entries)); }
    std::string takeActivationToken() override { return std::exchange(activationToken_, {}); }
    bool hosted() const override { return hosted_; }
    /// Called when that changes, never before the constructor has returned.
    std::function<void(bool)> onHosted;

private:
    void describe();
    void answerPresses();
    void watcherChanged(const std::string& owner);
    void takeName();
    void join(std::string name);
    void hostsChanged();
    void setHosted(bool hosted);

    std::shared_ptr<SessionBus> bus_;
    const Icon icon_;
    const Presses presses_;
    State state_;
    BusMenu menu_;
    const std::string ownName_; // asked of the bus when the first watcher comes
    const OwnedObject<KdTrayItem> skeleton_;
    bool joining_ = false;
    bool registered_ = false;
    bool hosted_ = false;
    std::string activationToken_; // for the coming press
    /// Owns the calls to the watcher that is there now; null while none is. With it go the replies to them.
    std::shared_ptr<void> watcherCalls_;
    Subscription served_;
    std::vector<Subscription> listening_;
};

} // namespace kelvadrome
