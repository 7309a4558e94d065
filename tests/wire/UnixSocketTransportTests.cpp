#include "KelvadromeKit/wire/UnixSocketTransport.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/Squatter.h"
#include "tests/support/TestLoop.h"
#include "tests/wire/Said.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

constexpr double soon = 0.02; // seconds; a socket time-out that is meant to pass

std::string words(int error, const std::string& what) {
    return what + ": " + std::strerror(error);
}

std::size_t openDescriptors() {
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

/// A socket that listens and does nothing else.
struct Listener {
    explicit Listener(int backlog) : path(folder / "s"), acceptor(context, Local()) {
        acceptor.bind(Local::endpoint(path));
        acceptor.listen(backlog);
    }

    /// Takes one connection and drops it once something was written to it.
    void dropOne() {
        auto peer = acceptor.accept();
        peer.wait(Local::socket::wait_read);
    }

    using Local = asio::local::stream_protocol;
    TemporaryFolder folder;
    std::string path;
    asio::io_context context;
    Local::acceptor acceptor;
};

struct Exchanges {
    TestLoop loop;

    /// What sending to `path` gives: "status body" or the error's words.
    std::string send(const std::string& path, std::string body = "x", double timeout = 20) {
        const UnixSocketTransport transport(path, loop.pool());
        std::string result;
        const auto error = said([&] {
            const auto reply = loop.run(transport.send("POST", "/", std::move(body), {}, timeout));
            result = std::to_string(reply.status) + " " + reply.body;
        });
        return error.empty() ? result : error;
    }
};

/// How one event stream went.
struct Followed {
    explicit Followed(FakeDaemon& daemon) : Followed(daemon.socketPath()) {}
    explicit Followed(const std::string& path) {
        auto task = UnixSocketTransport(path, loop.pool())
                        .stream("/v1/stream", [this](const SSEParser::EventView& event) {
                            std::lock_guard guard(lock);
                            events.append(event.event).append("=").append(event.data).append(";");
                        });
        handle = spawn(loop.executor(), "stream", watch(std::move(task), this));
    }

    static Task<> watch(Task<> stream, Followed* self) {
        const auto outcome = co_await attempt(std::move(stream));
        self->end = outcome ? "returned" : describeException(outcome.error());
    }

    std::string ended() {
        loop.until([&] { return !end.empty(); }, "the stream to end");
        return end;
    }
    std::string seen() {
        std::lock_guard guard(lock);
        return events;
    }

    std::mutex lock;
    std::string events;
    std::string end;
    TaskHandle handle;
    TestLoop loop; // its pool is joined before the rest goes
};

const std::string head = "HTTP/1.1 200 OK\r\n\r\n";

} // namespace

TEST(UnixSocketTransport, aPathOf103BytesConnectsAndALongerOneIsNotTried) {
    const TemporaryFolder folder;
    const auto fill = [&](std::size_t size) {
        auto path = folder / "";
        return path + std::string(size - path.size(), 's');
    };
    FakeDaemon fits(fill(103)), tooLong(fill(104));
    TestLoop loop;
    EXPECT_TRUE(loop.run(UnixSocketTransport(fits.socketPath(), loop.pool()).isAlive()));
    EXPECT_EQ(Exchanges().send(tooLong.socketPath()), "socket path too long: 104 bytes");
    EXPECT_EQ(tooLong.connections(), 0u);
}

TEST(UnixSocketTransport, anExchangeSendsTheRequestAndReadsToTheEnd) {
    FakeDaemon daemon;
    const std::string large(3 << 20, 'x');
    daemon.on("/", [](const FakeRequest& request) { return FakeReply{.status = 201, .body = request.body}; });
    Exchanges exchanges;
    EXPECT_TRUE(exchanges.send(daemon.socketPath(), large) == "201 " + large);
    const auto request = daemon.requests().at(0);
    EXPECT_EQ(request.bytes, HTTPWire::request("POST", "/", large, {}));
}

TEST(UnixSocketTransport, anExchangeFailsAtEveryStepInItsOwnWords) {
    const auto before = openDescriptors();
    {
        Exchanges exchanges;
        const TemporaryFolder folder;
        EXPECT_EQ(exchanges.send(folder / "missing"), words(ENOENT, "connect failed"));
        const std::string large(4 << 20, 'x'); // more than a socket holds
        {
            Listener deaf(8);
            EXPECT_EQ(exchanges.send(deaf.path, large, soon), words(EAGAIN, "write failed"));
            EXPECT_EQ(exchanges.send(deaf.path, "x", soon), "timed out");
            deaf.acceptor.close();
            EXPECT_EQ(exchanges.send(deaf.path), words(ECONNREFUSED, "connect failed"));
        }
        for (const auto& [body, expected] : {std::pair(large, words(EPIPE, "write failed")),
                 std::pair(std::string("x"), words(ECONNRESET, "read failed"))}) {
            Listener listener(8);
            std::thread dropping([&] { listener.dropOne(); });
            EXPECT_EQ(exchanges.send(listener.path, body), expected);
            dropping.join();
        }
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(UnixSocketTransport, nothingIsSaidToADaemonOfAnotherUser) {
    if (!Squatter::canBe(Squatter::User::other))
        GTEST_SKIP() << "only root can be another user";
    const TemporaryFolder folder;
    Squatter stranger(Squatter::User::other, folder / "s");
    Exchanges exchanges;
    EXPECT_EQ(exchanges.send(folder / "s"), words(EACCES, "connect failed"));
    EXPECT_FALSE(exchanges.loop.run(UnixSocketTransport(folder / "s", exchanges.loop.pool()).isAlive()));
    EXPECT_EQ(Followed(folder / "s").ended(), words(EACCES, "connect failed"));
    exchanges.loop.until([&] { return stranger.taken().size() >= 3; }, "three connections");
    EXPECT_EQ(stranger.taken(), "+++");
}

TEST(UnixSocketTransport, aReplyThatStopsAnywhereIsMalformedOrTimesOut) {
    const std::string reply = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody";
    FakeDaemon daemon;
    Exchanges exchanges;
    for (std::size_t sent = 0; sent <= reply.size(); ++sent) {
        daemon.on("/", FakeReply::raw(reply.substr(0, sent)));
        const auto expected = sent == reply.size() ? "200 body"
                              : sent + 4 < reply.size()
                                  ? "malformed response: no header end"
                                  : "malformed response: body shorter than Content-Length";
        EXPECT_EQ(exchanges.send(daemon.socketPath()), expected) << sent;
    }
    // Even a whole reply isn't one before the daemon closes.
    const auto never = std::make_shared<FakeStream>();
    for (const std::size_t sent : {std::size_t{0}, std::size_t{9}, reply.size()}) {
        daemon.on("/", FakeReply{.bytes = reply.substr(0, sent), .stream = never});
        EXPECT_EQ(exchanges.send(daemon.socketPath(), "x", soon), "timed out") << sent;
    }
}

TEST(EventStream, eventsArriveInOrderUntilTheDaemonCloses) {
    const auto plain = std::make_shared<FakeStream>();
    FakeDaemon daemon;
    daemon.on("/v1/stream", FakeReply::events(plain));
    Followed stream(daemon);
    stream.loop.until([&] { return plain->opened(); }, "the stream to open");
    plain->push("event: one\ndata: \xF0\x9F");
    plain->push("\x98\x80\n\nevent: ping\n");
    stream.loop.until([&] { return stream.seen() == "one=\xF0\x9F\x98\x80;"; }, "the first event");
    plain->push("\ndata: unfinished\n");
    plain->close();
    EXPECT_EQ(stream.ended(), "returned");
    EXPECT_EQ(stream.seen(), "one=\xF0\x9F\x98\x80;ping=;");
    EXPECT_EQ(daemon.requests().at(0).bytes,
        HTTPWire::request("GET", "/v1/stream", std::nullopt, {{"Accept", "text/event-stream"}}));
}

TEST(EventStream, everyEndOfAStreamIsToldApart) {
    struct Row {
        std::string reply;
        std::string end;
        std::string events;
    };
    const std::string chunks = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    const Row rows[] = {
        {head + "data: a\n\ndata: b\n", "returned", "message=a;"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\ndata: a\n\n", "returned", "message=a;"},
        {chunks + "9\r\ndata: a\n\n\r\nzz\r\n", "malformed response: bad chunk size", ""},
        {"HTTP/1.1 503 No\r\n\r\ndata: a\n\n", "malformed response: stream status 503", ""},
        {"HTTP/2 200 OK\r\n\r\n", "malformed response: bad status line", ""},
    };
    const auto before = openDescriptors();
    for (const auto& row : rows) {
        FakeDaemon daemon;
        daemon.on("/v1/stream", FakeReply::raw(row.reply));
        Followed stream(daemon);
        EXPECT_EQ(stream.ended(), row.end) << row.reply;
        EXPECT_EQ(stream.seen(), row.events) << row.reply;
    }
    const TemporaryFolder folder;
    EXPECT_EQ(Followed(folder / "missing").ended(), words(ENOENT, "connect failed"));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(EventStream, cancellingABlockedReadReturnsNormallyAndCloses) {
    const auto silent = std::make_shared<FakeStream>();
    FakeDaemon daemon;
    daemon.on("/v1/stream", FakeReply::events(silent));
    Followed stream(daemon);
    silent->push("data: a\n\n");
    stream.loop.until([&] { return !stream.seen().empty(); }, "an event");
    stream.handle.cancel();
    EXPECT_EQ(stream.ended(), "returned");
    stream.loop.until([&] { return silent->clientGone(); }, "the close");
}

TEST(EventStream, cancellingWhileConnectingDoesNotHang) {
    const Listener full(0);
    TestLoop loop;
    const UnixSocketTransport transport(full.path, loop.pool());
    const auto queued = transport.openSocket(soon); // a backlog of 0 holds one
    EXPECT_EQ(said([&] { transport.openSocket(soon); }), words(EAGAIN, "connect failed"));
    Followed stream(full.path);
    stream.loop.drain();
    EXPECT_EQ(stream.end, "");
    stream.handle.cancel();
    EXPECT_EQ(stream.ended(), "returned");
}
