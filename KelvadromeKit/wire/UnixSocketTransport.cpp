#include "KelvadromeKit/wire/UnixSocketTransport.h"

#include "KelvadromeKit/wire/EventStream.h"
#include "KelvadromeKit/wire/ReplyBuffer.h"
#include "KelvadromeKit/wire/UnixSocket.h"

#include <cerrno>
#include <memory>
#include <sys/socket.h>

namespace kelvadrome {

namespace {

HTTPResponse readReply(int fd) {
    ReplyBuffer reply;
    for (;;) {
        const auto count = reply.readFrom(fd);
        if (count == 0)
            return std::move(reply).finish();
        if (count > 0 || errno == EINTR)
            continue;
        if (errno == EAGAIN)
            throw TransportError::timedOut();
        throw TransportError::readFailed(errno);
    }
}

HTTPResponse exchangeBytes(const UnixSocketTransport& transport, std::string_view request, double timeout) {
    const auto socket = transport.openSocket(timeout);
    UnixSocketTransport::writeAll(socket.get(), request);
    return readReply(socket.get());
}

Task<> follow(std::string socketPath, std::string path, SSEParser::OnEvent onEvent, BackgroundPool* pool) {
    const auto stream = std::make_shared<EventStream>(socketPath, std::move(path), std::move(onEvent));
    const auto run = [stream] { stream->run(); };
    const auto cancel = [stream] { stream->cancel(); };
    co_await pool->run(run, cancel);
}

} // namespace

Descriptor UnixSocketTransport::openSocket(std::optional<double> timeout) const {
    auto socket = UnixSocket::make(path_);
    if (timeout)
        UnixSocket::setTimeout(socket, *timeout);
    if (const auto error = UnixSocket::connect(socket, path_))
        throw TransportError::connectFailed(error);
    return socket;
}

Task<bool> UnixSocketTransport::isAlive() const {
    return pool_->run([transport = *this] {
        try {
            transport.openSocket(1.0);
            return true;
        } catch (const TransportError&) {
            return false;
        }
    });
}

HTTPResponse UnixSocketTransport::exchange(
    std::string_view method, std::string_view path, double timeout) const {
    return exchangeBytes(*this, HTTPWire::request(method, path, std::nullopt, {}), timeout);
}

Task<HTTPResponse> UnixSocketTransport::send(std::string method, std::string path,
    std::optional<std::string> body, std::map<std::string, std::string> headers, double timeout) const {
    return pool_->run([transport = *this, request = HTTPWire::request(method, path, body, headers), timeout] {
        return exchangeBytes(transport, request, timeout);
    });
}

Task<> UnixSocketTransport::stream(std::string path, SSEParser::OnEvent onEvent) const {
    return follow(path_, std::move(path), std::move(onEvent), pool_);
}

void UnixSocketTransport::writeAll(int fd, std::string_view data) {
    while (!data.empty()) {
        // Without MSG_NOSIGNAL a daemon that goes away would end the process.
        const auto count = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            data.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            throw TransportError::writeFailed(errno);
        }
    }
}

} // namespace kelvadrome
