#pragma once

#include "Kelvadrome/platform/linux/session/SessionBus.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvadrome {

/// One row of a menu on the bus.
struct BusMenuEntry {
    std::int32_t id = 0; // above 0, its own in the menu; the same row keeps its id
    std::string label = {};
    bool enabled = true;
    bool checkable = false;
    bool checked = false; // a press doesn't change it: the owner shows the new state
    bool separator = false;
    std::function<void()> pressed = {};
};

/// A flat menu offered as com.canonical.dbusmenu, for whoever shows the item that it belongs to. Main thread.
class BusMenu {
public:
    BusMenu(std::shared_ptr<SessionBus> bus, std::string path);
    ~BusMenu();
    BusMenu(const BusMenu&) = delete;
    BusMenu& operator=(const BusMenu&) = delete;

    const std::string& path() const { return path_; }
    /// Tells the readers of what has changed and nothing else.
    void show(std::vector<BusMenuEntry> entries);
    /// Grows by one with each change of the rows.
    std::uint32_t revision() const { return revision_; }

private:
    using Property = std::variant<bool, std::int32_t, std::string>;
    using Properties = std::map<std::string, Property>;

    static Properties properties(const BusMenuEntry& entry);
    GVariant* answer(const std::string& method, GVariant* arguments);
    GVariant* layout(std::int32_t parent, std::int32_t depth, GVariant* names) const;
    GVariant* groupProperties(GVariant* ids, GVariant* names) const;
    GVariant* property(std::int32_t id, const std::string& name) const;
    std::optional<Properties> find(std::int32_t id) const;
    void press(std::int32_t id, const std::string& event);
    GVariant* pressAll(GVariant* events);
    void announce(const std::vector<BusMenuEntry>& before);

    std::shared_ptr<SessionBus> bus_;
    std::string path_;
    std::vector<BusMenuEntry> entries_;
    std::uint32_t revision_ = 1;
    std::shared_ptr<void> life_ = std::make_shared<bool>();
    Subscription served_;
};

} // namespace kelvadrome
