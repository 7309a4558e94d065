#include "KelvadromeKit/support/Text.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

TEST(Text, repairReplacesEachMaximalSubpartOnce) {
    const struct {
        std::string bytes, repaired;
    } rows[] = {
        {"plain", "plain"},
        {"a\xFF" "b", "a\uFFFDb"},
        {"\xE2\x82", "\uFFFD"},              // a cut euro sign is one subpart
        {"\xE2\x82\xE2\x82\xAC", "\uFFFD€"}, // and what follows it is kept
        {"\xC0\x80", "\uFFFD\uFFFD"},        // an overlong form has no valid start
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x9F\x98", "\uFFFD"},
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
    };
    for (const auto& row : rows) EXPECT_EQ(Text::repairUTF8(row.bytes), row.repaired);
}

TEST(Text, aCharacterIsAGraphemeCluster) {
    const std::string family = "👨‍👩‍👧";
    const std::string text = "e\u0301" + family + "x";
    EXPECT_EQ(Text::characterCount(text), 3u);
    EXPECT_EQ(Text::prefix(text, 2), "e\u0301" + family);
    EXPECT_EQ(Text::dropFirst(text, 2), "x");
    EXPECT_EQ(Text::prefix(text, 99), text);
    EXPECT_EQ(Text::characterCount("\r\n"), 1u);
    EXPECT_TRUE(Text::canonicallyEqual("e\u0301", "\u00E9"));
    EXPECT_FALSE(Text::canonicallyEqual("e", "\u00E9"));
}

TEST(Text, splittingTellsEmptyPiecesApart) {
    using Pieces = std::vector<std::string_view>;
    EXPECT_EQ(Text::split(":a::b:", ':'), (Pieces{"", "a", "", "b", ""}));
    EXPECT_EQ(Text::split(":a::b:", ':', Text::EmptyPieces::drop), (Pieces{"a", "b"}));
    EXPECT_EQ(Text::split("a  b  c", ' ', Text::EmptyPieces::drop, 1), (Pieces{"a", "b  c"}));
    EXPECT_EQ(Text::split("a b c", ' ', Text::EmptyPieces::keep, 1), (Pieces{"a", "b c"}));
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
    EXPECT_EQ(Text::uppercasedFirst(""), "");
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
