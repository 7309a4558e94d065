#include "KelvadromeKit/capture/FrontWindow.h"

#include <boost/json/value.hpp>

#include <algorithm>
#include <concepts>

namespace kelvadrome {

namespace {

constexpr double leastWidth = 120;
constexpr double leastHeight = 80;
constexpr double leastAlpha = 0.05; // and below is as good as not there

template <std::integral Number>
std::optional<Number> integerAt(const boost::json::object& object, const char* key) {
    const auto* const value = object.if_contains(key);
    boost::system::error_code error;
    if (!value || !value->is_number())
        return std::nullopt;
    const auto number = value->to_number<Number>(error);
    return error ? std::nullopt : std::optional(number);
}

std::optional<double> numberAt(const boost::json::object& object, const char* key) {
    const auto* const value = object.if_contains(key);
    boost::system::error_code error;
    if (!value || !value->is_number())
        return std::nullopt;
    return value->to_number<double>(error);
}

} // namespace

std::optional<WindowInfo> WindowInfo::fromDictionary(const boost::json::object& dictionary) {
    const auto id = integerAt<std::uint32_t>(dictionary, "kCGWindowNumber");
    const auto owner = integerAt<std::int32_t>(dictionary, "kCGWindowOwnerPID");
    const auto layer = integerAt<std::int64_t>(dictionary, "kCGWindowLayer");
    const auto* const bounds = dictionary.if_contains("kCGWindowBounds");
    if (!id || !owner || !layer || !bounds || !bounds->is_object())
        return std::nullopt;
    const auto* const onScreen = dictionary.if_contains("kCGWindowIsOnscreen");
    return WindowInfo{*id, *owner, *layer, numberAt(bounds->get_object(), "Width").value_or(0),
        numberAt(bounds->get_object(), "Height").value_or(0),
        numberAt(dictionary, "kCGWindowAlpha").value_or(1),
        onScreen && onScreen->is_bool() ? onScreen->get_bool() : true};
}

std::optional<WindowInfo> FrontWindow::pick(
    const std::vector<WindowInfo>& windows, std::optional<std::int32_t> appPID, std::int32_t selfPID) {
    if (!appPID || *appPID == selfPID)
        return std::nullopt;
    const auto fits = [&](const WindowInfo& window) {
        return window.ownerPID == *appPID && window.layer == 0 && window.onScreen &&
               window.alpha > leastAlpha && window.width >= leastWidth && window.height >= leastHeight;
    };
    const auto found = std::ranges::find_if(windows, fits);
    return found == windows.end() ? std::nullopt : std::optional(*found);
}

} // namespace kelvadrome
