#pragma once

#include "Kelvadrome/platform/linux/desk/BusMenu.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kelvadrome {

/// The item in the desktop's tray, offered as org.kde.StatusNotifierItem with its menu to every watcher that
/// comes while we run. Many desktops have none, so it is never the only way in. Main thread.
class StatusNotifierItem {
public:
    enum class Status { passive, active, needsAttention };

    /// Straight alpha, the bytes A R G B, row after row.
    struct Pixmap {
        std::int32_t width = 0;
        std::int32_t height = 0;
        std::string bytes = {};

        /// From what toolkits draw: premultiplied, 32 bits a pixel in the machine's own order.
        static Pixmap fromPremultiplied(
            std::int32_t width, std::int32_t height, std::size_t stride, const unsigned char* pixels);
        bool operator==(const Pixmap&) const = default;
    };

    struct Icon {
        std::string name = "com.kelvadrome.mac-symbolic";
        std::string themePath = {};       // a folder that holds "hicolor"; empty when the icon is installed
        std::vector<Pixmap> pixmaps = {}; // for hosts that don't find the name
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

    StatusNotifierItem(std::shared_ptr<SessionBus> bus, Icon icon, Presses presses);
    ~StatusNotifierItem();
    StatusNotifierItem(const StatusNotifierItem&) = delete;
    StatusNotifierItem& operator=(const StatusNotifierItem&) = delete;

    void show(State state);
    void setMenu(std::vector<BusMenuEntry> entries) { menu_.show(std::move(entries)); }

    /// What a host gave for a press that is no call of the item's, such as one in its menu; mostly empty.
    std::string takeActivationToken() { return std::exchange(activationToken_, {}); }

    /// Whether some host shows the item, as far as is known.
    bool hosted() const { return hosted_; }
    /// Called when that changes, never before the constructor has returned.
    std::function<void(bool)> onHosted;

private:
    GVariant* answer(const std::string& method, GVariant* arguments);
    GVariant* property(const std::string& name) const;
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
    bool joining_ = false;
    bool registered_ = false;
    bool hosted_ = false;
    std::string activationToken_; // for the coming press
    /// What is under way belongs to one stay of a watcher; another stay has another of these.
    std::shared_ptr<void> stay_;
    Subscription served_;
    std::vector<Subscription> listening_;
};

} // namespace kelvadrome
