#pragma once

#include "Kelvadrome/glib/GLibOwned.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome::test {

/// What a screen reader gets of the application: the names, kinds and states of what shows. It speaks AT-SPI
/// on the accessibility bus by itself, and asks anew each time.
class ScreenReader {
public:
    struct Thing {
        std::string owner; // its address on the bus
        std::string path;
        std::string role = {}; // "button", "label", ...
        std::string name = {};
        bool focused = false;
        bool checked = false;   // also of a toggle button that is pressed
        bool selected = false;  // of a row
        bool sensitive = false; // can be used
        int depth = 0;
    };

    /// For the session bus in the environment, which starts the accessibility bus.
    ScreenReader();

    /// All that shows, windows first and from top to bottom in each.
    std::vector<Thing> look() const;
    /// The first that shows with this name, of that role unless it is empty.
    std::optional<Thing> find(const std::string& name, const std::string& role = {}) const;
    /// The first whose name has this in it.
    std::optional<Thing> findPart(const std::string& words, const std::string& role = {}) const;
    std::optional<Thing> focused() const;
    /// Presses it, as a screen reader's user does.
    void press(const Thing& thing) const;
    /// One line for each thing, for the message of a failed test.
    std::string describe() const;

private:
    OwnedVariant call(const Thing& thing, const char* interface, const char* method, GVariant* arguments,
        const char* replyType) const;
    std::vector<Thing> children(const Thing& thing) const;
    std::string name(const Thing& thing) const;
    void collect(Thing thing, std::vector<Thing>& things) const;
    std::optional<Thing> first(const std::function<bool(const Thing&)>& wanted) const;

    OwnedObject<GDBusConnection> bus_;
};

} // namespace kelvadrome::test
