#include "KelvadromeKit/wire/ChunkedDecoder.h"
#include "KelvadromeKit/wire/HTTPWire.h"

#include "tests/wire/Said.h"

#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

const std::string start =
    " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nUser-Agent: kelvadrome-macOS\r\n";
const std::string ok = "HTTP/1.1 200 OK\r\n";
const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";

std::string refusal(const std::string& reply) {
    const auto words = said([&] { HTTPWire::parse(reply); });
    const std::string prefix = "malformed response: ";
    return words.starts_with(prefix) ? words.substr(prefix.size()) : words;
}

std::string decodeChunks(const std::vector<std::string>& pieces, bool& finished) {
    ChunkedDecoder decoder;
    std::string output;
    for (const auto& piece : pieces)
        output += decoder.feed(piece);
    finished = decoder.finished();
    return output;
}

} // namespace

TEST(HTTPWire, aRequestIsTheSameBytesEveryTime) {
    EXPECT_EQ(HTTPWire::request("GET", "/v1/x?y=%20", {}, {}), "GET /v1/x?y=%20" + start + "\r\n");
    EXPECT_EQ(HTTPWire::request("POST", "/", "{\"\xC3\xA9\":1}", {}),
        "POST /" + start + "Content-Type: application/json\r\nContent-Length: 8\r\n\r\n{\"\xC3\xA9\":1}");
    EXPECT_EQ(HTTPWire::request("POST", "/", "a", {{"b", "2"}, {"Content-Type", "text/plain"}, {"a", "1"}}),
        "POST /" + start + "Content-Type: text/plain\r\na: 1\r\nb: 2\r\nContent-Length: 1\r\n\r\na");
}

TEST(HTTPWire, theHeadEndsAtTheFirstBlankLine) {
    EXPECT_EQ(HTTPWire::headerEnd("\r\n\r"), std::nullopt);
    EXPECT_EQ(HTTPWire::headerEnd("a\n\nb\r\n\r\nc\r\n\r\n"), 8u);
    for (std::size_t known = 0; known < 6; ++known)
        EXPECT_EQ(HTTPWire::headerEnd("ab\r\n\r\n", known), 6u);
}

TEST(HTTPWire, aReplyIsReadByItsOwnLengthWords) {
    struct Row {
        std::string reply;
        HTTPResponse expected;
    };
    const Row rows[] = {
        {"HTTP/1.0 200\r\n\r\n", {200, {}, ""}},
        {"HTTP/1.1   404   Not Found At All\r\n\r\nall of it", {404, {}, "all of it"}},
        {ok + "Set-Cookie: a=1\r\nX-A:\t b:c \t\r\nno colon\r\nset-cookie:b=2\r\n\r\n",
            {200, {{"set-cookie", "a=1, b=2"}, {"x-a", "b:c"}}, ""}},
        {ok + "Content-Length: 5\r\n\r\n12345678", {200, {{"content-length", "5"}}, "12345"}},
        {ok + "Content-Length: five\r\n\r\n12345678", {200, {{"content-length", "five"}}, "12345678"}},
        {ok + "Content-Length: 99999999999999999999\r\n\r\n12",
            {200, {{"content-length", "99999999999999999999"}}, "12"}},
        {ok + "Transfer-Encoding: gzip, Chunked\r\nContent-Length: 1\r\n\r\n2\r\nab\r\n0\r\n\r\nmore",
            {200, {{"content-length", "1"}, {"transfer-encoding", "gzip, Chunked"}}, "ab"}},
        {ok + "Transfer-Encod\u0130ng: chun\u212Aed\r\n\r\nabc",
            {200, {{"transfer-encod\u0130ng", "chun\u212Aed"}}, "abc"}},
        {ok + "\r\n" + std::string("\xFF\x00\r\n\r\n", 6), {200, {}, std::string("\xFF\x00\r\n\r\n", 6)}},
    };
    for (const auto& row : rows) {
        const auto response = HTTPWire::parse(row.reply);
        EXPECT_EQ(response.status, row.expected.status) << row.reply;
        EXPECT_EQ(response.headers, row.expected.headers) << row.reply;
        EXPECT_EQ(response.body, row.expected.body) << row.reply;
    }
}

TEST(HTTPWire, whatIsNoReplyIsRefusedInTheRightWords) {
    const std::pair<std::string, std::string> rows[] = {{"", "no header end"}, {"\r\n\r\n", "empty header"},
        {ok + "A: \xFF\r\n\r\n", "header is not UTF-8"}, {"HTTP/2 200 OK\r\n\r\n", "bad status line"},
        {"HTTP/1.1 abc\r\n\r\n", "bad status line"},
        {ok + "Content-Length: -1\r\n\r\n1234", "body shorter than Content-Length"},
        {ok + "Content-Length: 9223372036854775807\r\n\r\n1234", "body shorter than Content-Length"},
        {chunked + "7fffffffffffffff\r\nab", "chunked body ended early"},
        {chunked + "-2\r\nab\r\n", "bad chunk size"},
        {chunked + "ffffffffffffffffff\r\nab\r\n", "bad chunk size"}};
    for (const auto& [reply, words] : rows)
        EXPECT_EQ(refusal(reply), words) << reply;
}

TEST(ChunkedDecoder, anySplitGivesTheSameBytes) {
    struct Row {
        std::string input;
        std::string output;
        bool finished;
    };
    const Row rows[] = {{"5\r\nhello\r\n0\r\n", "hello", true}, {"5\r\nhello\r\n0\r", "hello", false},
        {"5;name=value;more\r\nhello\r\n;;1\r\n!\r\n", "hello!", false},
        {"2\r\nab??3\r\ncde\r\n0\r\nTrailer: 1\r\n\r\n5\r\nextra", "abcde", true},
        {" \t+A\t\r\n0123456789\r\nb\r\n0123456789a\r\n-0\r\n", "01234567890123456789a", true},
        {"4\r\n\r\n\r\n\r\n0\r\n", "\r\n\r\n", true}};
    for (const auto& row : rows) {
        splitEverywhere(row.input, [&](const std::vector<std::string>& pieces) {
            bool finished = false;
            EXPECT_EQ(decodeChunks(pieces, finished), row.output);
            EXPECT_EQ(finished, row.finished) << row.input;
        });
    }
}

TEST(ChunkedDecoder, aBadSizeLineIsRefusedHoweverItArrives) {
    for (const std::string line :
        {"", " ", ";", "g", "5 5", "0x5", "-1", "5\n", "8000000000000000", "5;\xC3\xA9"}) {
        splitEverywhere("1\r\na\r\n" + line + "\r\n", [&](const std::vector<std::string>& pieces) {
            bool finished = false;
            EXPECT_EQ(said([&] { decodeChunks(pieces, finished); }), "malformed response: bad chunk size")
                << line;
        });
    }
}
