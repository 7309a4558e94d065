#include "KelvadromeKit/support/ISO8601.h"
#include "KelvadromeKit/support/Text.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

TEST(Text, repairReplacesEachMaximalSubpartOnce) {
    const struct {
        std::string bytes, repaired;
    } rows[] = {
        {"a\xFF.", "a\uFFFD."},
        {"\xE2\x82", "\uFFFD"},              // a cut euro sign is one subpart
        {"\xE2\x82\xE2\x82\xAC", "\uFFFD€"}, // and what follows it is kept
        {"\xC0\x80", "\uFFFD\uFFFD"},        // an overlong form has no valid start
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Text::repairUTF8(row.bytes), row.repaired);
}

TEST(Text, aCharacterIsAGraphemeCluster) {
    const std::string family = "👨‍👩‍👧";
    const std::string text = "e\u0301" + family + "x";
    EXPECT_EQ(Text::characterCount(text), 3u);
    EXPECT_EQ(Text::prefix(text, 2), "e\u0301" + family);
    EXPECT_EQ(Text::dropFirst(text, 2), "x");
    EXPECT_EQ(Text::characterCount("\r\n"), 1u);
    EXPECT_TRUE(Text::canonicallyEqual("e\u0301", "\u00E9"));
}

TEST(Text, splittingTellsEmptyPiecesApart) {
    using Pieces = std::vector<std::string_view>;
    EXPECT_EQ(Text::split(":a::b:", ':'), (Pieces{"", "a", "", "b", ""}));
    EXPECT_EQ(Text::split(":a::b:", ':', Text::EmptyPieces::drop), (Pieces{"a", "b"}));
    EXPECT_EQ(Text::split("", ' '), (Pieces{""}));
    EXPECT_TRUE(Text::split("", ' ', Text::EmptyPieces::drop).empty());
}

TEST(Text, trimsAndCases) {
    EXPECT_EQ(Text::trimBlanks(" \t a b\n\t "), "a b\n");
    EXPECT_EQ(Text::trimWhitespace("\u00A0\n a \u2003\r\n"), "a");
    for (const std::string kept : {"a \x80\x80", "a\n\xFF", "\xE2\x82 b\xE2\x82"}) {
        EXPECT_EQ(Text::trimWhitespace(" " + kept), kept); // bad bytes are no blanks
    }
    EXPECT_EQ(Text::lowercased("ÄB"), "äb");
    EXPECT_EQ(Text::uppercasedFirst("éa B"), "Éa B");
    EXPECT_EQ(Text::capitalized("cursor-AGENT two"), "Cursor-Agent Two");
    EXPECT_EQ(Text::lastPathComponent("/a/b//"), "b");
    EXPECT_EQ(Text::lastPathComponent("/"), "/");
}

TEST(Text, integersAreReadWholeOrNotAtAll) {
    EXPECT_EQ(Text::parseInteger("+8080"), 8080);
    EXPECT_EQ(Text::parseInteger("-1"), -1);
    EXPECT_EQ(Text::parseInteger("fF", 16), 255);
    for (const auto* bad : {"", "+", "-", "80a", " 1", "1 ", "+-1", "99999999999999999999"}) {
        EXPECT_FALSE(Text::parseInteger(bad)) << bad;
    }
}

TEST(ISO8601, bothFormsAndEachZoneNameTheInstant) {
    const struct {
        const char* text;
        double seconds;
    } rows[] = {{"2026-01-31T09:30:05Z", 1769851805}, {"2026-01-31T09:30:05.125Z", 1769851805.125},
        {"2026-01-31T10:30:05+01:00", 1769851805}, {"2026-01-31T10:30:05+0100", 1769851805},
        {"2026-01-31T04:00:05.000-0530", 1769851805}, {"2024-02-29T23:59:59Z", 1709251199},
        {"1969-12-31T23:59:59.5Z", -0.5}, {"0001-01-01T00:00:00Z", -62135596800}};
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
        EXPECT_FALSE(parseISO8601(good.substr(cut + 1))) << good.substr(cut + 1);
    }
    for (const auto* bad :
        {"2026-01-31 09:30:05Z", "2026-01-31T09:30:05Z\n", "2026-01-31T09:30:05.Z", "2026-02-29T00:00:00Z",
            "2026-13-01T00:00:00Z", "2026-01-31T24:00:00Z", "2026-01-31T09:30:05+1:00",
            "2026-01-31T09:30:5.55Z", "2026-01-31T09:30:05+24:00", "+026-01-31T09:30:05Z"})
        EXPECT_FALSE(parseISO8601(bad)) << bad;
}

TEST(ISO8601, whatIsWrittenReadsBackAsTheSecondItFellIn) {
    EXPECT_EQ(formatISO8601(wallTime(1769851805.999)), "2026-01-31T09:30:05Z");
    EXPECT_EQ(formatISO8601(wallTime(-0.5)), "1969-12-31T23:59:59Z");
    for (double t = -5e9; t < 5e9; t += 86399 * 1234.0)
        EXPECT_EQ(parseISO8601(formatISO8601(wallTime(t))), wallTime(t));
}
