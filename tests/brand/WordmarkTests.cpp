#include "KelvadromeKit/brand/Wordmark.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kelvadrome::Wordmark {

namespace {

using Commands = std::vector<Command>;

TEST(Wordmark, pathsAreReadIntoCommands) {
    const struct {
        const char* text;
        Commands commands;
    } rows[] = {{"", {}}, {"M 1 2 L 3 4 Z", {Move{1, 2}, Line{3, 4}, Close{}}}, {"1 2", {Move{1, 2}}},
        {"Q 1 2 3 4 5 6 7 8", {Quad{1, 2, 3, 4}, Quad{5, 6, 7, 8}}},
        {"C 1 2 3 4 5 6", {Cubic{1, 2, 3, 4, 5, 6}}}, {"M1,2-3-4.5", {Move{1, 2}, Line{-3, -4.5}}},
        {"M+1 .5Z M 2. \n3", {Move{1, .5}, Close{}, Move{2, 3}}}};
    for (const auto& row : rows)
        EXPECT_EQ(parse(row.text), row.commands) << row.text;
}

TEST(Wordmark, whatIsNoPathIsRefusedWhereItGoesWrong) {
    const struct {
        const char* text;
        ParseError::Reason reason;
    } rows[] = {
        {"M 1", BadNumber{2}}, {"M", BadNumber{1}}, {"M 1 L", BadNumber{2}},
        {"M 1 2 L 3 4.5.6", BadNumber{5}}, {"M 1 --2", BadNumber{2}}, {"M 1 2\n3 4", BadNumber{2}},
        {"M 1e5 2", BadNumber{2}}, {"M 0x10 2", BadNumber{2}}, {"M 1 \xFF", BadNumber{2}},
        {"m 1 2", Unsupported{"m"}}, {"M 1 2 H 3", Unsupported{"H"}}, {"M 1 2 Z 3 4", Unsupported{"Z"}},
        {"M 1 2 \xC3\xA9", Unsupported{"\xC3\xA9"}},
        {"M 1 2 e\xCC\x81 3", Unsupported{"e\xCC\x81"}}, // one character of two scalars
    };
    for (const auto& row : rows) {
        try {
            parse(row.text);
            ADD_FAILURE() << "accepted: " << row.text;
        } catch (const ParseError& error) {
            EXPECT_EQ(error, ParseError(row.reason)) << row.text << ": " << error.what();
        }
    }
}

} // namespace

} // namespace kelvadrome::Wordmark
