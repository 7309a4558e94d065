#include "tests/support/FakeDaemon.h"

#include "KelvadromeKit/support/Text.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>

namespace kelvadrome::test {

namespace {

bool sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

/// Waits until the condition holds; false when the client went first.
bool waitFor(int fd, const std::function<bool()>& condition) {
    while (!condition()) {
        pollfd end{fd, POLLIN | POLLRDHUP, 0};
        char byte;
        if (::poll(&end, 1, 1) > 0 && ::recv(fd, &byte, 1, MSG_DONTWAIT) <= 0)
            return false;
    }
    return true;
}

std::string head(const FakeReply& reply) {
    auto text = fmt::format("HTTP/1.1 {} Whatever\r\n", reply.status);
    for (const auto& [key, value] : reply.headers)
        text += key + ": " + value + "\r\n";
    if (!reply.stream)
        text += fmt::format("Content-Length: {}\r\n", reply.body.size());
    return text + "Connection: close\r\n\r\n";
}

} // namespace

void FakeStream::push(const std::string& bytes) {
    std::lock_guard guard(lock_);
    waiting_ += bytes;
}

std::string FakeStream::take() {
    std::lock_guard guard(lock_);
    return std::exchange(waiting_, {});
}

FakeReply FakeReply::data(const std::string& json) {
    return {.headers = {{"Content-Type", "application/json"}}, .body = "{\"ok\":true,\"data\":" + json + "}"};
}

FakeReply FakeReply::failure(const std::string& code, const std::string& message, std::int64_t status) {
    return {.status = status,
        .headers = {{"Content-Type", "application/json"}},
        .body = fmt::format(R"({{"ok":false,"error":{{"code":"{}","message":"{}"}}}})", code, message)};
}

FakeReply FakeReply::raw(std::string bytes) {
    return {.bytes = std::move(bytes)};
}

FakeReply FakeReply::events(std::shared_ptr<FakeStream> stream) {
    return {.headers = {{"Content-Type", "text/event-stream"}}, .stream = std::move(stream)};
}

FakeReply FakeReply::heldBy(std::shared_ptr<FakeGate> by) && {
    gate = std::move(by);
    return std::move(*this);
}

FakeDaemon::FakeDaemon() : FakeDaemon(std::string()) {}

FakeDaemon::FakeDaemon(std::string socketPath) : socketPath_(std::move(socketPath)) {
    using Local = boost::asio::local::stream_protocol;
    if (socketPath_.empty())
        socketPath_ = folder_.emplace() / "kelvadromed.sock";
    ::unlink(socketPath_.c_str());
    boost::asio::io_context context;
    listen(Descriptor(Local::acceptor(context, Local::endpoint(socketPath_)).release()));
}

FakeDaemon::~FakeDaemon() {
    stop();
}

std::uint16_t FakeDaemon::listenOnTCP() {
    using boost::asio::ip::tcp;
    boost::asio::io_context context;
    tcp::acceptor acceptor(context, {boost::asio::ip::address_v4::loopback(), 0});
    const auto port = acceptor.local_endpoint().port();
    listen(Descriptor(acceptor.release()));
    return port;
}

void FakeDaemon::listen(Descriptor listener) {
    ::fcntl(listener.get(), F_SETFD, FD_CLOEXEC);
    acceptors_.emplace_back([this, fd = listener.get()] { acceptFrom(fd); });
    listeners_.push_back(std::move(listener));
}

void FakeDaemon::on(const std::string& path, Handler handler) {
    std::lock_guard guard(lock_);
    handlers_[path] = std::move(handler);
}

void FakeDaemon::on(const std::string& path, FakeReply reply) {
    on(path, [reply = std::move(reply)](const FakeRequest&) { return reply; });
}

std::vector<FakeRequest> FakeDaemon::requests() const {
    std::lock_guard guard(lock_);
    return requests_;
}

std::vector<FakeRequest> FakeDaemon::requests(const std::string& path) const {
    auto all = requests();
    std::erase_if(all, [&](const FakeRequest& request) { return request.path != path; });
    return all;
}

std::size_t FakeDaemon::connections() const {
    std::lock_guard guard(lock_);
    return connections_.size();
}

void FakeDaemon::stop() {
    {
        std::lock_guard guard(lock_);
        if (std::exchange(stopped_, true))
            return;
        for (const auto& listener : listeners_)
            ::shutdown(listener.get(), SHUT_RDWR);
    }
    for (auto& acceptor : acceptors_)
        acceptor.join();
    {
        std::lock_guard guard(lock_);
        for (const auto& connection : connections_) {
            if (connection.fd)
                ::shutdown(connection.fd.get(), SHUT_RDWR);
        }
    }
    for (auto& connection : connections_)
        connection.thread.join();
    listeners_.clear();
    ::unlink(socketPath_.c_str());
}

void FakeDaemon::acceptFrom(int listener) {
    for (;;) {
        Descriptor peer(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        std::lock_guard guard(lock_);
        if (stopped_)
            return;
        if (!peer)
            continue;
        auto& connection = connections_.emplace_back();
        connection.fd = std::move(peer);
        connection.thread = std::thread([this, &connection] {
            serve(connection.fd.get());
            std::lock_guard guard(lock_);
            connection.fd.reset();
        });
    }
}

void FakeDaemon::serve(int fd) {
    const auto request = readRequest(fd);
    if (!request)
        return;
    const auto reply = answer(*request);
    if (reply.gate && !waitFor(fd, [&] { return reply.gate->isOpen(); }))
        return;
    send(fd, reply);
}

FakeReply FakeDaemon::answer(const FakeRequest& request) {
    Handler handler;
    {
        std::lock_guard guard(lock_);
        requests_.push_back(request);
        if (const auto found = handlers_.find(request.path); found != handlers_.end())
            handler = found->second;
    }
    return handler ? handler(request) : FakeReply::failure("not_found", "no such route", 404);
}

std::optional<FakeRequest> FakeDaemon::readRequest(int fd) {
    FakeRequest request;
    std::string& bytes = request.bytes;
    std::size_t wanted = std::string::npos, bodyAt = 0;
    char buffer[65536];
    while (bytes.size() < wanted) {
        const auto count = ::read(fd, buffer, sizeof buffer);
        if (count <= 0)
            return std::nullopt;
        bytes.append(buffer, static_cast<std::size_t>(count));
        const auto end = wanted == std::string::npos ? bytes.find("\r\n\r\n") : std::string::npos;
        if (end == std::string::npos)
            continue;
        bodyAt = end + 4;
        std::istringstream lines(bytes.substr(0, end));
        std::string target, line;
        lines >> request.method >> target;
        std::getline(lines, line);
        request.path = target.substr(0, target.find('?'));
        if (request.path.size() < target.size())
            request.query = target.substr(request.path.size() + 1);
        while (std::getline(lines, line)) {
            const auto colon = line.find(": ");
            auto& value = request.headers[Text::lowercased(line.substr(0, colon))];
            value = line.substr(colon + 2, line.find('\r') - colon - 2);
        }
        const auto length = request.headers.find("content-length");
        wanted = bodyAt + (length == request.headers.end() ? 0 : std::stoul(length->second));
    }
    request.body = bytes.substr(bodyAt);
    return request;
}

void FakeDaemon::send(int fd, const FakeReply& reply) {
    if (!sendAll(fd, reply.bytes ? *reply.bytes : head(reply)))
        return;
    if (reply.stream) {
        pump(fd, *reply.stream);
    } else if (!reply.bytes) {
        sendAll(fd, reply.body);
    }
}

void FakeDaemon::pump(int fd, FakeStream& stream) {
    stream.opened_ = true;
    std::string bytes;
    const auto pushed = [&] {
        const bool closed = stream.closed_; // before the last bytes are taken
        bytes = stream.take();
        return closed || !bytes.empty();
    };
    for (;;) {
        if (!waitFor(fd, pushed) || !sendAll(fd, bytes)) {
            stream.clientGone_ = true;
            return;
        }
        if (bytes.empty())
            return;
    }
}

} // namespace kelvadrome::test
