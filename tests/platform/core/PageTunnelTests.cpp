#include "Kelvadrome/platform/linux/core/PageTunnel.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/Squatter.h"
#include "tests/support/TestLoop.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/url/parse.hpp>
#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

using boost::asio::ip::tcp;

struct PageTunnelTest : testing::Test {
    /// What a client of the tunnel gets: where it was stopped, or the reply to a request.
    std::string ask(
        std::uint16_t to, std::optional<std::string> password = {}, std::string host = {127, 0, 0, 1}) {
        const auto url = boost::urls::parse_uri(tunnel.url()).value();
        boost::asio::io_context context;
        tcp::socket socket(context);
        socket.connect({boost::asio::ip::address_v4::loopback(), url.port_number()});
        const auto say = [&](const std::string& bytes) {
            boost::asio::write(socket, boost::asio::buffer(bytes));
        };
        const auto hear = [&](std::size_t count) {
            std::string bytes(count, 'x');
            boost::asio::read(socket, boost::asio::buffer(bytes));
            return bytes;
        };
        const auto sized = [](const std::string& text) { return static_cast<char>(text.size()) + text; };
        try {
            say({5, 2, 0, 2});
            if (hear(2) != std::string{5, 2})
                return "no method";
            say(char(1) + sized(url.user()) + sized(password.value_or(url.password())));
            if (hear(2)[1] != 0)
                return "wrong password";
            say(std::string{5, 1, 0, 1} + host + static_cast<char>(to >> 8) + static_cast<char>(to & 0xff));
            if (const int refusal = hear(10)[1]; refusal != 0)
                return "refused " + std::to_string(refusal);
            say("GET /page HTTP/1.1\r\nHost: x\r\n\r\n");
            socket.shutdown(tcp::socket::shutdown_send);
            std::string reply;
            boost::system::error_code end;
            boost::asio::read(socket, boost::asio::dynamic_buffer(reply), end);
            return reply.substr(0, reply.find('\r')) + " " + std::to_string(reply.size() > body.size());
        } catch (const boost::system::system_error& error) {
            return error.code() == boost::asio::error::eof ? "closed" : error.what();
        }
    }

    const std::string body = std::string(300'000, 'b');
    FakeDaemon daemon;
    std::uint16_t port = daemon.listenOnTCP();
    std::shared_ptr<FixedPeers> peers = std::make_shared<FixedPeers>();
    PageTunnel tunnel{peers};
};

} // namespace

TEST_F(PageTunnelTest, leadsToTheOnePortForWhoKnowsThePassword) {
    daemon.on("/page", FakeReply{.body = body});
    EXPECT_EQ(ask(port), "refused 2") << "it leads nowhere at first";
    EXPECT_EQ(tunnel.lead(port), std::nullopt);
    EXPECT_EQ(ask(port), "HTTP/1.1 200 Whatever 1");
    EXPECT_EQ(ask(port, ""), "wrong password");
    EXPECT_EQ(ask(port, std::string(32, '0')), "wrong password");
    FakeDaemon other;
    EXPECT_EQ(ask(other.listenOnTCP()), "refused 2");
    EXPECT_EQ(ask(port, {}, {127, 0, 0, 2}), "refused 2");
    EXPECT_EQ(other.connections(), 0u);
    EXPECT_EQ(daemon.connections(), 1u);
    EXPECT_EQ(tunnel.lead(0).value_or(""), "The daemon's page has no port.");
}

TEST_F(PageTunnelTest, aPeerThatIsRefusedGetsNotAByteAndAPortThatIsClosesTheTunnel) {
    EXPECT_EQ(tunnel.lead(port), std::nullopt);
    daemon.stop();
    EXPECT_EQ(ask(port), "refused 4");
    Squatter squatter(Squatter::User::own, port);
    peers->refuse("Not the daemon.");
    EXPECT_EQ(ask(port), "refused 2");
    TestLoop loop;
    loop.until([&] { return !squatter.taken().empty(); }, "the connection");
    EXPECT_EQ(squatter.taken(), "+");
    EXPECT_EQ(tunnel.lead(port), "Not the daemon.");
    peers->refuse({});
    EXPECT_EQ(ask(port), "refused 2") << "it is only opened anew by asking";
}

} // namespace kelvadrome::test
