#pragma once

#include "tests/support/TemporaryFolder.h"

#include <boost/asio/awaitable.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kelvadrome::test {

struct FakeRequest {
    std::string method;
    std::string path; // without the query
    std::string query;
    std::map<std::string, std::string> headers; // keys lower-cased
    std::string body;
    std::string bytes; // the whole request as it came
};

/// Holds replies back until it is opened.
class FakeGate {
public:
    void open() { open_ = true; }
    bool isOpen() const { return open_; }

private:
    std::atomic<bool> open_ = false;
};

/// The body of a reply that goes on: push into it from any thread, then close it or let the client go.
class FakeStream {
public:
    void push(const std::string& bytes);
    void close() { closed_ = true; }
    /// The head was sent.
    bool opened() const { return opened_; }
    /// The client closed its end.
    bool clientGone() const { return clientGone_; }

private:
    friend class FakeDaemon;
    std::string take();

    std::mutex lock_;
    std::string waiting_;
    std::atomic<bool> closed_ = false, opened_ = false, clientGone_ = false;
};

struct FakeReply {
    std::int64_t status = 200;
    std::vector<std::pair<std::string, std::string>> headers = {}; // Content-Length and Connection are added
    std::string body = {};
    std::optional<std::string> bytes = {};   // sent exactly as they are, instead of all the above
    std::shared_ptr<FakeGate> gate = {};     // nothing is sent before it opens
    std::shared_ptr<FakeStream> stream = {}; // follows the head or the bytes, without a length

    /// The envelope around a record's JSON text.
    static FakeReply data(const std::string& json);
    static FakeReply failure(const std::string& code, const std::string& message, std::int64_t status = 400);
    static FakeReply raw(std::string bytes);
    static FakeReply events(std::shared_ptr<FakeStream> stream);
    FakeReply heldBy(std::shared_ptr<FakeGate> by) &&;
};

/// A small real HTTP/1.1 server in a test's world: one request a connection, a thread of its own, on a Unix
/// socket and, when asked, on a TCP port of 127.0.0.1. A path without a handler answers 404 "not_found". Safe
/// from any thread.
class FakeDaemon {
public:
    using Handler = std::function<FakeReply(const FakeRequest&)>;

    /// Listens on a socket in a private folder.
    FakeDaemon();
    explicit FakeDaemon(std::string socketPath);
    ~FakeDaemon();
    FakeDaemon(const FakeDaemon&) = delete;
    FakeDaemon& operator=(const FakeDaemon&) = delete;

    const std::string& socketPath() const { return socketPath_; }
    /// Listens on TCP too and answers the port.
    std::uint16_t listenOnTCP();

    /// Handlers run on the server's thread. The latest one for a path holds.
    void on(const std::string& path, Handler handler);
    void on(const std::string& path, FakeReply reply);

    /// What came so far, in order of arrival; those to one path only when given.
    std::vector<FakeRequest> requests() const;
    std::vector<FakeRequest> requests(const std::string& path) const;
    /// Connections accepted so far, those that asked nothing included.
    std::size_t connections() const { return connections_; }

    /// Closes everything at once and removes the socket: from then on connecting fails.
    void stop();

private:
    using Socket = boost::asio::generic::stream_protocol::socket;

    template <class Acceptor>
    void accept(Acceptor acceptor);
    template <class Acceptor>
    boost::asio::awaitable<void> acceptFrom(Acceptor acceptor);
    boost::asio::awaitable<void> serve(Socket socket);
    FakeReply answer(const FakeRequest& request);

    std::optional<TemporaryFolder> folder_;
    std::string socketPath_;
    mutable std::mutex lock_;
    std::map<std::string, Handler> handlers_;
    std::vector<FakeRequest> requests_;
    std::atomic<std::size_t> connections_ = 0;
    std::optional<boost::asio::io_context> context_{std::in_place};
    std::thread thread_;
};

} // namespace kelvadrome::test
