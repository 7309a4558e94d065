#include "KelvadromeKit/wire/SSEParser.h"
#include "KelvadromeKit/wire/StreamText.h"

#include "tests/wire/Said.h"

#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;

TEST(SSEParser, eventsAreTheSameHoweverTheTextIsCut) {
    using Events = std::vector<SSEParser::Event>;
    const std::pair<std::string, Events> rows[] = {
        {"data: a\ndata:b\n\n", {{"message", "a\nb", {}}}},
        {"data:a:b: c\n\n", {{"message", "a:b: c", {}}}},
        {"event: ping\n\n", {{"ping", "", {}}}},
        {"id: 1\nid: 2\ndata: a\n\ndata: b\n\n", {{"message", "a", "2"}, {"message", "b", {}}}},
        {"event: x\n: keep-alive\ndata: a\n\n: only this\n\n", {{"x", "a", {}}}},
        {"data\ndata\n\n", {{"message", "\n", {}}}},
        {"retry: 5\nDATA: a\n data: b\n\n", {}},
        {"event: x\r\ndata: a\r\n\r\ndata: b\n\r\n", {{"x", "a", {}}, {"message", "b", {}}}},
        {"data: a\rb\r\r\n\n", {{"message", "a\rb\r", {}}}},
        {"data: a\n\r\r\n", {}}, // a line of one carriage return is no empty line
        {"data: unfinished\n", {}},
        {"event: x\nevent: y\ndata: \xF0\x9F\x98\x80\n\n", {{"y", "\xF0\x9F\x98\x80", {}}}},
    };
    for (const auto& [text, expected] : rows) {
        splitEverywhere(text, [&](const std::vector<std::string>& pieces) {
            SSEParser parser;
            Events events;
            for (const auto& piece : pieces)
                std::ranges::move(parser.feed(piece), std::back_inserter(events));
            EXPECT_EQ(events, expected) << text;
        });
    }
}

TEST(StreamText, charactersCutByAReadArriveWhole) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF0\x9F\x98\x80z";
    splitEverywhere(text, [&](const std::vector<std::string>& pieces) {
        StreamText reader;
        std::string result;
        for (const auto& piece : pieces)
            result += reader.take(piece);
        EXPECT_EQ(result, text);
    });
}

TEST(StreamText, badBytesAreRepairedAndStopNothing) {
    using Texts = std::vector<std::string>;
    const struct {
        Texts pieces, texts;
    } rows[] = {
        {{"abc\xFF.ef", "ghi"}, {"abc\xEF\xBF\xBD", ".efghi"}}, // the last three may be a cut character
        {{"\xFF", "", "abc"}, {"", "", "\xEF\xBF\xBD"}},
        {{"\xED\xA0\x80..", "...\n"}, {"\xEF\xBF\xBD\xEF\xBF\xBD", "\xEF\xBF\xBD..."}},
    };
    for (const auto& row : rows) {
        StreamText reader;
        std::vector<std::string> texts;
        for (const auto& piece : row.pieces)
            texts.emplace_back(reader.take(piece));
        EXPECT_EQ(texts, row.texts);
    }
}
