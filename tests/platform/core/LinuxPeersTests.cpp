#include "Kelvadrome/platform/linux/core/LinuxPeers.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/Squatter.h"
#include "tests/support/TestLoop.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <unistd.h>

namespace kelvadrome::test {
namespace {

using User = Squatter::User;
using boost::asio::ip::tcp;

/// A connection to a port of 127.0.0.1, and how it looks from this end.
struct Call {
    explicit Call(std::uint16_t port) {
        socket.connect({boost::asio::ip::address_v4::loopback(), port});
        seen = {"127.0.0.1", port, "127.0.0.1", socket.local_endpoint().port()};
    }

    boost::asio::io_context context;
    tcp::socket socket{context};
    TCPConnection seen;
};

/// Listens and never accepts, on IPv6 and IPv4 at once.
struct Deaf {
    boost::asio::io_context context;
    tcp::acceptor acceptor{context, {tcp::v6(), 0}};
    std::uint16_t port = acceptor.local_endpoint().port();
};

struct LinuxPeersTest : testing::Test {
    std::string onConnection(std::uint16_t port) {
        const Call call(port);
        return peers.refusal(call.seen).value_or("fine");
    }
    std::string onPort(std::uint16_t port) { return peers.listenerRefusal(port).value_or("fine"); }

    TestLoop loop;
    FakeDaemon daemon;
    LinuxPeers peers{UnixSocketTransport(daemon.socketPath(), loop.pool())};
};

std::string sentence(std::uint16_t port, const char* what) {
    return fmt::format("Port {} {}, so nothing was sent there.", port, what);
}

} // namespace

TEST_F(LinuxPeersTest, theDaemonIsKnownByItsSocketBeforeAndAfterItAccepts) {
    const auto port = daemon.listenOnTCP();
    EXPECT_EQ(onPort(port), "fine");
    EXPECT_EQ(onConnection(port), "fine");
    // Of this process too, which is the one that listens on the daemon's socket here.
    const Deaf deaf;
    EXPECT_EQ(onPort(deaf.port), "fine");
    EXPECT_EQ(onConnection(deaf.port), "fine");
    daemon.stop();
    EXPECT_EQ(onPort(deaf.port), sentence(deaf.port, "has a listener, but no daemon answers on its socket"));
    EXPECT_EQ(onPort(port), fmt::format("Nobody listens on port {}.", port));
}

TEST_F(LinuxPeersTest, anotherProgramOfThisUserIsNotTheDaemonUnlessTheDaemonSaysSo) {
    Squatter squatter(User::own, 0);
    const auto refusal = sentence(squatter.port(), "is held by another program than the daemon");
    // The sockets were made in this process, as a parent hands them down; it has let go of them.
    EXPECT_EQ(onPort(squatter.port()), refusal);
    EXPECT_EQ(onConnection(squatter.port()), refusal);
    daemon.on("/v1/health", FakeReply::data(fmt::format(R"({{"pid":{}}})", squatter.pid())));
    EXPECT_EQ(onPort(squatter.port()), "fine");
    for (const auto pid : {0, static_cast<int>(::getpid())}) {
        daemon.on("/v1/health", FakeReply::data(fmt::format(R"({{"pid":{}}})", pid)));
        EXPECT_EQ(onPort(squatter.port()), refusal);
    }
    // A socket that isn't the daemon's own is forwarded, by ssh or a container's proxy, and so is the port.
    daemon.on("/v1/health", FakeReply::data(R"({"pid":987654321})"));
    EXPECT_EQ(onPort(squatter.port()), "fine");
}

TEST_F(LinuxPeersTest, anotherUserIsRefusedAlsoBeforeTheyAccept) {
    if (!Squatter::canBe(User::other))
        GTEST_SKIP() << "only root can be another user";
    Squatter stranger(User::other, 0);
    const auto refusal = sentence(stranger.port(), "belongs to another user of this machine");
    EXPECT_EQ(onPort(stranger.port()), refusal);
    EXPECT_EQ(onConnection(stranger.port()), refusal);
    Deaf deaf;
    ASSERT_EQ(::fchown(deaf.acceptor.native_handle(), 65534, 65534), 0);
    EXPECT_EQ(onConnection(deaf.port), sentence(deaf.port, "belongs to another user of this machine"));
    EXPECT_EQ(stranger.taken().find_first_not_of('+'), std::string::npos);
}

TEST(TCPRows, areReadFromBothTablesAndOddLinesLeftOut) {
    if (htonl(1) == 1)
        GTEST_SKIP() << "the lines are of a machine with the lower byte first";
    const auto rows = parseTCPRows(
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
        "   0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 4242 1 "
        "0\n"
        "   1: 0000000000000000FFFF00000100007F:1F90 0000000000000000FFFF00000100007F:D431 01 0:0 0:0 0 "
        "65534 0 7\n"
        "   2: 00000000000000000000000001000000:0016 00000000000000000000000000000000:0000 0A 0:0 0:0 0 0 0 "
        "8 1\n"
        "   3: 0100007F:1F90 0200007F 01 0:0 0:0 0 1000 0 9\n"
        "   4: 0100007F:1F90 0200007F:0001 01 0:0 0:0 0 x 0 9\n"
        "   5: 0100007F:1F90 cut");
    EXPECT_EQ(rows, (std::vector<TCPRow>{{"127.0.0.1", 8080, "0.0.0.0", 0, TCPRow::listening, 1000, 4242},
                        {"127.0.0.1", 8080, "127.0.0.1", 54321, TCPRow::established, 65534, 7},
                        {"::1", 22, "::", 0, TCPRow::listening, 0, 8}}));
}

} // namespace kelvadrome::test
