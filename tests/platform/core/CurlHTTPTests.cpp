#include "Kelvadrome/platform/linux/core/CurlHTTP.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace kelvadrome::test {
namespace {

struct CurlHTTPTest : testing::Test {
    HTTPRequest request(std::string method, const std::string& path) const {
        return {std::move(method), fmt::format("http://127.0.0.1:{}{}", port, path), {}, std::nullopt, 60};
    }

    TestLoop loop;
    FakeDaemon daemon;
    std::uint16_t port = daemon.listenOnTCP();
    std::shared_ptr<FixedPeers> peers = std::make_shared<FixedPeers>();
    std::shared_ptr<CurlHTTP> http = std::make_shared<CurlHTTP>(loop.pool(), peers);
};

Task<> keepOutcome(std::shared_ptr<CurlHTTP> http, HTTPRequest request,
    std::shared_ptr<std::optional<Outcome<HTTPResponse>>> outcome) {
    auto ended = co_await attempt(http->exchange(std::move(request)));
    *outcome = std::move(ended);
}

} // namespace

TEST_F(CurlHTTPTest, aRedirectIsAReplyAndTheEnvironmentsProxyIsNotAsked) {
    for (const auto* name : {"http_proxy", "all_proxy"})
        ::setenv(name, "http://127.0.0.1:9", 1);
    daemon.on("/login", FakeReply{.status = 303,
                            .headers = {{"Location", "/elsewhere"}, {"Set-Cookie", "a=1; Path=/"},
                                {"Set-Cookie", "b=2"}, {"X-Two", "1"}, {"x-two", "2"}},
                            .body = "text"});
    const auto reply = loop.run(http->exchange(request("GET", "/login")));
    for (const auto* name : {"http_proxy", "all_proxy"})
        ::unsetenv(name);
    EXPECT_EQ(reply.status, 303);
    EXPECT_EQ(reply.body, "text");
    EXPECT_EQ(reply.headers.at("set-cookie"), "a=1; Path=/");
    EXPECT_EQ(reply.headers.at("x-two"), "1, 2");
    // No cookie is kept for the next exchange.
    loop.run(http->exchange(request("GET", "/next")));
    EXPECT_FALSE(daemon.requests("/next").at(0).headers.contains("cookie"));
}

TEST_F(CurlHTTPTest, headersAndBodyArriveAsTheyAreAndALineEndInAHeaderIsRefused) {
    auto post = request("POST", "/echo");
    post.headers = {{"Content-Type", "application/json"}, {"X-Empty", ""}};
    post.body = std::string("{\"a\":\"\0\"}", 9);
    loop.run(http->exchange(post));
    loop.run(http->exchange(request("POST", "/bare")));
    const auto seen = daemon.requests("/echo").at(0);
    EXPECT_EQ(seen.body, *post.body);
    EXPECT_EQ(seen.headers.at("content-type"), "application/json");
    EXPECT_NE(seen.bytes.find("X-Empty:\r\n"), std::string::npos);
    EXPECT_EQ(daemon.requests("/bare").at(0).headers.at("content-length"), "0");

    post.headers = {{"Cookie", "a=1\r\nX-Forged: 1"}};
    EXPECT_THROW(loop.run(http->exchange(post)), std::runtime_error);
    EXPECT_EQ(daemon.requests().size(), 2u);
}

TEST_F(CurlHTTPTest, aCancelledExchangeEndsAtOnce) {
    auto gate = std::make_shared<FakeGate>();
    daemon.on("/held", FakeReply::data("{}").heldBy(gate));
    auto outcome = std::make_shared<std::optional<Outcome<HTTPResponse>>>();
    const auto handle =
        spawn(loop.executor(), "held exchange", keepOutcome(http, request("GET", "/held"), outcome));
    loop.until([&] { return !daemon.requests("/held").empty(); }, "the request to arrive");
    handle.cancel();
    // Far below the exchange's own limit of 60 s: `until` gives up after 20.
    loop.until([&] { return outcome->has_value(); }, "the cancelled exchange to end");
    EXPECT_TRUE(isCancellation((*outcome)->error()));
    gate->open();
}

TEST_F(CurlHTTPTest, nothingIsSentOverAConnectionThatIsRefused) {
    peers->refuse("Not the daemon.");
    auto post = request("POST", "/v1/cards/answer");
    post.headers = {{"Cookie", "kd_session=secret"}};
    post.body = "{}";
    try {
        loop.run(http->exchange(post));
        ADD_FAILURE() << "it was sent";
    } catch (const NotConnected& error) {
        EXPECT_STREQ(error.what(), "Not the daemon.");
    }
    EXPECT_TRUE(daemon.requests().empty());
    peers->refuse({});
    loop.run(http->exchange(post));
    EXPECT_EQ(daemon.requests().size(), 1u);
}

TEST_F(CurlHTTPTest, noReplyIsAnErrorAndTheNextDaemonOnThePortIsReached) {
    daemon.on("/cut", FakeReply::raw("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n{"));
    EXPECT_THROW(loop.run(http->exchange(request("GET", "/cut"))), std::runtime_error);
    EXPECT_EQ(loop.run(http->exchange(request("GET", "/"))).status, 404);
    daemon.stop();
    EXPECT_THROW(loop.run(http->exchange(request("GET", "/"))), NotConnected);
    auto other = request("GET", "/");
    other.url = "ftp://127.0.0.1/";
    EXPECT_THROW(loop.run(http->exchange(other)), std::runtime_error);
}

} // namespace kelvadrome::test
