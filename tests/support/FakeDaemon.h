#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include "tests/support/TemporaryFolder.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
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

/// A small real HTTP/1.1 server in a test's world: one request a connection, a thread for each, on a Unix
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

    /// Handlers run on the connection's thread. The latest one for a path holds.
    void on(const std::string& path, Handler handler);
    void on(const std::string& path, FakeReply reply);

    /// What came so far, in order of arrival; those to one path only when given.
    std::vector<FakeRequest> requests() const;
    std::vector<FakeRequest> requests(const std::string& path) const;
    /// Connections accepted so far, those that asked nothing included.
    std::size_t connections() const;

    /// Closes everything at once and removes the socket: from then on connecting fails.
    void stop();

private:
    struct Connection {
        Descriptor fd; // under the lock; none once it has ended
        std::thread thread;
    };

    void listen(Descriptor listener);
    void acceptFrom(int listener);
    void serve(int fd);
    FakeReply answer(const FakeRequest& request);
    static std::optional<FakeRequest> readRequest(int fd);
    static void send(int fd, const FakeReply& reply);
    static void pump(int fd, FakeStream& stream);

    std::optional<TemporaryFolder> folder_;
    std::string socketPath_;
    mutable std::mutex lock_;
    bool stopped_ = false;
    std::map<std::string, Handler> handlers_;
    std::vector<FakeRequest> requests_;
    std::list<Connection> connections_;
    std::vector<Descriptor> listeners_;
    std::vector<std::thread> acceptors_;
};

} // namespace kelvadrome::test
