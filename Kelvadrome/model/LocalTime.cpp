#include "Kelvadrome/model/LocalTime.h"

#include <array>
#include <ctime>
#include <langinfo.h>
#include <string_view>

namespace kelvadrome {

namespace {

constexpr double dayLength = 86'400;

std::tm localParts(WallTime time) {
    const auto moment = std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
    std::tm parts{};
    localtime_r(&moment, &parts);
    return parts;
}

std::string formatted(const char* format, const std::tm& parts) {
    std::array<char, 80> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

/// Whether the locale counts to twelve.
bool tellsHalfOfDay() {
    const std::string_view format = nl_langinfo(T_FMT);
    return format.contains("%r") || format.contains("%p") || format.contains("%I");
}

} // namespace

std::string clockTime(WallTime time) {
    return formatted(tellsHalfOfDay() ? "%-I:%M %p" : "%H:%M", localParts(time));
}

std::string dayWords(WallTime day, WallTime now) {
    if (isSameDay(day, now))
        return "Today";
    if (isSameDay(day, now - seconds(dayLength)))
        return "Yesterday";
    return formatted("%x", localParts(day));
}

std::string momentWords(WallTime time, WallTime now) {
    return (isSameDay(time, now) ? "" : dayWords(time, now) + " ") + clockTime(time);
}

bool isSameDay(WallTime left, WallTime right) {
    const auto a = localParts(left);
    const auto b = localParts(right);
    return a.tm_year == b.tm_year && a.tm_yday == b.tm_yday;
}

} // namespace kelvadrome
