#include "KelvadromeKit/support/ISO8601.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <charconv>
#include <cmath>

namespace kelvadrome {

namespace {

/// Seconds east of Greenwich.
int offsetOf(const std::string& zone) {
    static const re2::RE2 pattern("([+-])([0-9]{2}):?([0-9]{2})");
    std::string sign;
    int hours = 0, minutes = 0;
    re2::RE2::FullMatch(zone, pattern, &sign, &hours, &minutes); // not "Z"
    return (sign == "-" ? -1 : 1) * (hours * 3600 + minutes * 60);
}

} // namespace

std::optional<WallTime> parseISO8601(std::string_view text) {
    static const re2::RE2 pattern(
        "([0-9]{4})-([0-9]{2})-([0-9]{2})T([01][0-9]|2[0-3]):([0-5][0-9]):([0-5][0-9])"
        "((?:\\.[0-9]+)?)(Z|[+-](?:[01][0-9]|2[0-3]):?[0-5][0-9])");
    int year = 0, hour = 0, minute = 0, second = 0;
    unsigned month = 0, day = 0;
    std::string fraction, zone;
    if (!re2::RE2::FullMatch({text.data(), text.size()}, pattern, &year, &month, &day, &hour, &minute,
            &second, &fraction, &zone)) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date{
        std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
    if (!date.ok())
        return std::nullopt;
    double part = 0; // of the last second
    std::from_chars(fraction.data(), fraction.data() + fraction.size(), part);
    const auto midnight = static_cast<double>(std::chrono::sys_days(date).time_since_epoch().count()) * 86400;
    return wallTime(midnight + hour * 3600 + minute * 60 + second - offsetOf(zone) + part);
}

std::string formatISO8601(WallTime time) {
    const auto whole = static_cast<std::int64_t>(std::floor(time.time_since_epoch().count()));
    const std::chrono::sys_seconds instant{std::chrono::seconds(whole)};
    const auto midnight = std::chrono::floor<std::chrono::days>(instant);
    const std::chrono::year_month_day date(midnight);
    const std::chrono::hh_mm_ss clock(instant - midnight);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
        clock.minutes().count(), clock.seconds().count());
}

} // namespace kelvadrome
