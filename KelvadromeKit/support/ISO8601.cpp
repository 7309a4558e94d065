#include "KelvadromeKit/support/ISO8601.h"

#include <fmt/format.h>

#include <cmath>

namespace kelvadrome {

namespace {

/// Takes the text from its front, piece by piece. After the first piece that isn't there, all else fails too.
class Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool good() const { return good_; }
    bool atEnd() const { return rest_.empty(); }
    bool sees(char c) const { return rest_.starts_with(c); }
    bool seesDigit() const { return !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9'; }

    char take() {
        if (rest_.empty()) {
            good_ = false;
            return '\0';
        }
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }

    void expect(char c) {
        if (take() != c)
            good_ = false;
    }

    int digits(int count) {
        int value = 0;
        for (int i = 0; i < count; ++i) {
            if (!seesDigit())
                good_ = false;
            if (!good_)
                return 0;
            value = value * 10 + (take() - '0');
        }
        return value;
    }

    /// A number of `count` digits that is at most `largest`.
    int digits(int count, int largest) {
        const int value = digits(count);
        if (value > largest)
            good_ = false;
        return value;
    }

private:
    std::string_view rest_;
    bool good_ = true;
};

double readFraction(Reader& reader) {
    if (!reader.sees('.'))
        return 0;
    reader.expect('.');
    double fraction = reader.digits(1) / 10.0;
    for (double unit = 0.01; reader.seesDigit(); unit /= 10)
        fraction += unit * reader.digits(1);
    return fraction;
}

/// Seconds east of Greenwich.
int readZone(Reader& reader) {
    if (reader.sees('Z')) {
        reader.expect('Z');
        return 0;
    }
    const int sign = reader.sees('-') ? -1 : 1;
    reader.expect(sign < 0 ? '-' : '+');
    const int hours = reader.digits(2, 23);
    if (reader.sees(':'))
        reader.expect(':');
    const int minutes = reader.digits(2, 59);
    return sign * (hours * 3600 + minutes * 60);
}

} // namespace

std::optional<WallTime> parseISO8601(std::string_view text) {
    Reader reader(text);
    const int year = reader.digits(4);
    reader.expect('-');
    const int month = reader.digits(2);
    reader.expect('-');
    const int day = reader.digits(2);
    reader.expect('T');
    const int hour = reader.digits(2, 23);
    reader.expect(':');
    const int minute = reader.digits(2, 59);
    reader.expect(':');
    const int second = reader.digits(2, 59);
    const double fraction = readFraction(reader);
    const int offset = readZone(reader);
    if (!reader.good() || !reader.atEnd())
        return std::nullopt;

    const std::chrono::year_month_day date{std::chrono::year(year),
        std::chrono::month(static_cast<unsigned>(month)), std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok())
        return std::nullopt;
    const double days = static_cast<double>(std::chrono::sys_days(date).time_since_epoch().count());
    return wallTime(days * 86400 + hour * 3600 + minute * 60 + second - offset + fraction);
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
