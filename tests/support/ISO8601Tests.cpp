#include "KelvadromeKit/support/ISO8601.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

TEST(ISO8601, bothFormsAndEachZoneNameTheInstant) {
    const struct {
        const char* text;
        double seconds;
    } rows[] = {
        {"1970-01-01T00:00:00Z", 0},
        {"2026-01-31T09:30:05Z", 1769851805},
        {"2026-01-31T09:30:05.125Z", 1769851805.125},
        {"2026-01-31T09:30:05.5+00:00", 1769851805.5},
        {"2026-01-31T10:30:05+01:00", 1769851805},
        {"2026-01-31T10:30:05+0100", 1769851805},
        {"2026-01-31T04:00:05.000-0530", 1769851805},
        {"2024-02-29T23:59:59Z", 1709251199},
        {"1969-12-31T23:59:59.5Z", -0.5},
        {"0001-01-01T00:00:00Z", -62135596800},
    };
    for (const auto& row : rows) {
        const auto time = parseISO8601(row.text);
        ASSERT_TRUE(time) << row.text;
        EXPECT_NEAR(time->time_since_epoch().count(), row.seconds, 1e-6) << row.text;
    }
}

TEST(ISO8601, anythingElseIsNoTime) {
    const std::string good = "2026-01-31T09:30:05.125+01:00";
    for (std::size_t cut = 0; cut < good.size(); ++cut) {
        EXPECT_FALSE(parseISO8601(good.substr(0, cut))) << good.substr(0, cut);
        if (cut == 0) continue;
        EXPECT_FALSE(parseISO8601(good.substr(cut))) << good.substr(cut);
    }
    for (const auto* bad : {"2026-01-31", "2026-01-31T09:30:05", "2026-01-31 09:30:05Z",
             "2026-01-31t09:30:05Z", "2026-01-31T09:30:05z", " 2026-01-31T09:30:05Z",
             "2026-01-31T09:30:05Z\n", "2026-01-31T09:30:05.Z", "2026-01-31T09:30:05,1Z",
             "2026-02-29T00:00:00Z", "2026-13-01T00:00:00Z", "2026-00-01T00:00:00Z", "2026-01-32T00:00:00Z",
             "2026-01-31T24:00:00Z", "2026-01-31T09:60:00Z", "2026-01-31T09:30:60Z",
             "2026-01-31T09:30:05+1:00", "2026-01-31T09:30:05+24:00", "26-01-31T09:30:05Z",
             "+026-01-31T09:30:05Z", "2026-01-31T09:30:05Z+01:00", "20260131T093005Z", "soon"}) {
        EXPECT_FALSE(parseISO8601(bad)) << bad;
    }
}

TEST(ISO8601, whatIsWrittenReadsBackAsTheSecondItFellIn) {
    EXPECT_EQ(formatISO8601(wallTime(1769851805.999)), "2026-01-31T09:30:05Z");
    EXPECT_EQ(formatISO8601(wallTime(-0.5)), "1969-12-31T23:59:59Z");
    for (double t = -5e9; t < 5e9; t += 86399 * 1234.0)
        EXPECT_EQ(parseISO8601(formatISO8601(wallTime(t))), wallTime(t));
}
