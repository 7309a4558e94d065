#pragma once

#include <boost/json/object.hpp>

#include <cstdint>
#include <optional>
#include <vector>

namespace kelvadrome {

/// One window as the window system lists it.
struct WindowInfo {
    std::uint32_t id = 0;
    std::int32_t ownerPID = 0;
    std::int64_t layer = 0; // 0 for an ordinary window
    double width = 0, height = 0;
    double alpha = 1;
    bool onScreen = true;

    /// From an entry of a window server's list. Absent when a key that it needs is missing or of another
    /// type.
    static std::optional<WindowInfo> fromDictionary(const boost::json::object& dictionary);

    bool operator==(const WindowInfo&) const = default;
};

/// The application in front, by its window there. Its owner is the process; a window that tells of none
/// stands for an application of its own, with the window's number below zero.
struct FrontApplication {
    std::int32_t owner = 0;
    std::uint32_t window = 0;

    bool operator==(const FrontApplication&) const = default;
};

namespace FrontWindow {

/// The foremost window of `appPID` that is worth a picture; `windows` is in order from front to back. Nothing
/// of our own: a picture of this very application helps nobody.
std::optional<WindowInfo> pick(
    const std::vector<WindowInfo>& windows, std::optional<std::int32_t> appPID, std::int32_t selfPID);

} // namespace FrontWindow

/// The windows of other applications. Main executor; returns at once.
class WindowListing {
public:
    virtual ~WindowListing() = default;
    /// The number of the window to take for an application; absent when it has none.
    virtual std::optional<std::uint32_t> frontWindow(std::optional<std::int32_t> pid) = 0;
};

} // namespace kelvadrome
