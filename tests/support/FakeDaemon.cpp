#include "tests/support/FakeDaemon.h"

#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>

namespace kelvadrome::test {

namespace {

template <class T>
T checked(T result, const char* what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

void signal(int event) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(event, &one, sizeof one);
}

bool sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

/// Waits until `event` is readable; false when the client went first.
bool waitFor(int fd, int event) {
    for (;;) {
        pollfd ends[] = {{event, POLLIN, 0}, {fd, POLLIN | POLLRDHUP, 0}};
        if (::poll(ends, 2, -1) < 0)
            continue;
        if (ends[0].revents)
            return true;
        char byte;
        if (ends[1].revents && ::recv(fd, &byte, 1, MSG_DONTWAIT) <= 0)
            return false;
    }
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

FakeGate::FakeGate() : event_(checked(::eventfd(0, EFD_CLOEXEC), "eventfd")) {}

void FakeGate::open() {
    signal(event_.get());
}

FakeStream::FakeStream() : event_(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")) {}

void FakeStream::push(std::string bytes) {
    std::lock_guard guard(lock_);
    waiting_ += bytes;
    signal(event_.get());
}

void FakeStream::pushEvent(const std::string& name, const std::string& data) {
    push("event: " + name + "\ndata: " + data + "\n\n");
}

void FakeStream::close() {
    std::lock_guard guard(lock_);
    closed_ = true;
    signal(event_.get());
}

bool FakeStream::opened() const {
    std::lock_guard guard(lock_);
    return opened_;
}

bool FakeStream::clientGone() const {
    std::lock_guard guard(lock_);
    return clientGone_;
}

FakeStream::Taken FakeStream::take() {
    std::lock_guard guard(lock_);
    std::uint64_t count;
    [[maybe_unused]] const auto read = ::read(event_.get(), &count, sizeof count);
    return {std::exchange(waiting_, {}), closed_};
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
    if (socketPath_.empty())
        socketPath_ = folder_.emplace() / "kelvadromed.sock";
    Descriptor listener(checked(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath_.size() >= sizeof address.sun_path)
        throw std::invalid_argument("the path is too long");
    std::memcpy(address.sun_path, socketPath_.c_str(), socketPath_.size());
    ::unlink(socketPath_.c_str());
    listen(std::move(listener), reinterpret_cast<sockaddr*>(&address), sizeof address);
}

FakeDaemon::~FakeDaemon() {
    stop();
}

std::uint16_t FakeDaemon::listenOnTCP() {
    Descriptor listener(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    listen(std::move(listener), reinterpret_cast<sockaddr*>(&address), length);
    checked(::getsockname(listeners_.back().get(), reinterpret_cast<sockaddr*>(&address), &length),
        "getsockname");
    return ntohs(address.sin_port);
}

void FakeDaemon::listen(Descriptor listener, const sockaddr* address, std::uint32_t length) {
    checked(::bind(listener.get(), address, length), "bind");
    checked(::listen(listener.get(), 64), "listen");
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

std::size_t FakeDaemon::openConnections() const {
    std::lock_guard guard(lock_);
    return static_cast<std::size_t>(std::ranges::count(connections_, false, &Connection::ended));
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
            if (!connection.ended)
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
            connection.ended = true;
            connection.fd.reset();
        });
    }
}

void FakeDaemon::serve(int fd) {
    const auto request = readRequest(fd);
    if (!request)
        return;
    const auto reply = answer(*request);
    if (reply.gate && !waitFor(fd, reply.gate->descriptor()))
        return;
    send(fd, reply);
    if (reply.closeGate)
        waitFor(fd, reply.closeGate->descriptor());
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
        const auto lineEnd = bytes.find("\r\n");
        const auto line = bytes.substr(0, lineEnd);
        const auto target = line.substr(line.find(' ') + 1, line.rfind(' ') - line.find(' ') - 1);
        request.method = line.substr(0, line.find(' '));
        request.path = target.substr(0, target.find('?'));
        if (request.path.size() < target.size())
            request.query = target.substr(request.path.size() + 1);
        for (auto at = lineEnd + 2; at < end + 2;) {
            const auto stop = bytes.find("\r\n", at);
            const auto colon = bytes.find(": ", at);
            if (colon < stop) {
                request.headers[Text::lowercased(bytes.substr(at, colon - at))] =
                    bytes.substr(colon + 2, stop - colon - 2);
            }
            at = stop + 2;
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
    {
        std::lock_guard guard(stream.lock_);
        stream.opened_ = true;
    }
    for (;;) {
        bool alive = waitFor(fd, stream.event_.get());
        const auto taken = stream.take();
        alive = alive && sendAll(fd, taken.bytes);
        if (!alive) {
            std::lock_guard guard(stream.lock_);
            stream.clientGone_ = true;
        }
        if (!alive || taken.closed)
            return;
    }
}

} // namespace kelvadrome::test
