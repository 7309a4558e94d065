#pragma once

#include "Kelvadrome/model/TrayItem.h"
#include "Kelvadrome/platform/linux/session/SessionBus.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

using KdTrayMenu = struct _KdTrayMenu;

namespace kelvadrome {

/// A flat menu offered as com.canonical.dbusmenu, for whoever shows the item that it belongs to. Main thread.
class BusMenu {
public:
    BusMenu(std::shared_ptr<SessionBus> bus, std::string path);
    ~BusMenu();
    BusMenu(const BusMenu&) = delete;
    BusMenu& operator=(const BusMenu&) = delete;

    const std::string& path() const { return path_; }
    /// Tells the readers of what has changed and nothing else.
    void show(std::vector<TrayMenuEntry> entries);
    /// Grows by one with each change of the rows.
    std::uint32_t revision() const { return revision_; }

private:
    using Property = std::variant<bool, std::int32_t, std::string>;
    using Properties = std::map<std::string, Property>;

    static Properties properties(const TrayMenuEntry& entry);
    void answerReaders();
    GVariant* layout(std::int32_t parent, std::int32_t depth, const char* const* names) const;
    GVariant* groupProperties(GVariant* ids, const char* const* names) const;
    GVariant* property(std::int32_t id, const std::string& name) const;
    std::optional<Properties> find(std::int32_t id) const;
    void press(std::int32_t id, const std::string& event);
    GVariant* pressAll(GVariant* events);
    void announce(const std::vector<TrayMenuEntry>& before);

    std::shared_ptr<SessionBus> bus_;
    std::string path_;
    const OwnedObject<KdTrayMenu> skeleton_;
    std::vector<TrayMenuEntry> entries_;
    std::uint32_t revision_ = 1;
    std::shared_ptr<void> menuExists_ = std::make_shared<bool>(); // a press may end the menu
    Subscription served_;
};

} // namespace kelvadrome
