#include "KelvadromeKit/wire/EventStream.h"

#include "KelvadromeKit/wire/HTTPWire.h"
#include "KelvadromeKit/wire/UnixSocket.h"
#include "KelvadromeKit/wire/UnixSocketTransport.h"

#include <cerrno>
#include <fcntl.h>
#include <vector>

namespace kelvadrome {

namespace {

constexpr std::size_t readSize = 16384;
/// A connect that waits for a full backlog can't be woken, so it waits in slices of this many seconds.
constexpr double connectSlice = 0.1;

Descriptor duplicate(const Descriptor& socket) {
    Descriptor copy(::fcntl(socket.get(), F_DUPFD_CLOEXEC, 0));
    if (!copy)
        throw TransportError::connectFailed(errno);
    return copy;
}

} // namespace

EventStream::EventStream(const std::string& socketPath, std::string path, SSEParser::OnEvent onEvent)
    : EventStream(UnixSocket::make(socketPath), socketPath, std::move(path), std::move(onEvent)) {}

EventStream::EventStream(
    Descriptor socket, const std::string& socketPath, std::string path, SSEParser::OnEvent onEvent)
    : socketPath_(socketPath), path_(std::move(path)), onEvent_(std::move(onEvent)),
      socket_(duplicate(socket)), closer_(std::move(socket)) {}

void EventStream::run() {
    try {
        exchange();
    } catch (...) {
        const bool cancelled = closer_.closed(); // then the failure is what that brought about
        end();
        if (!cancelled)
            throw;
    }
    end();
}

void EventStream::end() {
    closer_.close();
    socket_.reset();
}

void EventStream::exchange() {
    if (!connect())
        return;
    UnixSocketTransport::writeAll(
        socket_.get(), HTTPWire::request("GET", path_, std::nullopt, {{"Accept", "text/event-stream"}}));
    std::vector<char> buffer(readSize);
    while (!closer_.closed()) {
        const auto count = ::read(socket_.get(), buffer.data(), buffer.size());
        if (count == 0)
            return;
        if (count > 0) {
            takeBytes({buffer.data(), static_cast<std::size_t>(count)});
        } else if (errno != EINTR) {
            throw TransportError::readFailed(errno);
        }
    }
}

/// False when cancelled first.
bool EventStream::connect() {
    UnixSocket::setTimeout(socket_, connectSlice);
    while (!closer_.closed()) {
        const auto error = UnixSocket::connect(socket_, socketPath_);
        if (error == 0) {
            UnixSocket::setTimeout(socket_, 0);
            return true;
        }
        if (error != EAGAIN)
            throw TransportError::connectFailed(error);
    }
    return false;
}

void EventStream::takeBytes(std::string_view bytes) {
    if (inBody_)
        return takeBody(bytes);
    const auto known = head_.size();
    head_ += bytes;
    const auto end = HTTPWire::headerEnd(head_, known);
    if (!end)
        return;
    const auto head = HTTPWire::parseHead(std::string_view(head_).substr(0, *end));
    if (head.status != 200) {
        throw TransportError::malformedResponse("stream status " + std::to_string(head.status));
    }
    if (HTTPWire::isChunked(head.headers))
        chunks_.emplace();
    inBody_ = true;
    const auto body = std::exchange(head_, {}).substr(*end);
    takeBody(body);
}

void EventStream::takeBody(std::string_view bytes) {
    if (!chunks_)
        return parser_.feed(text_.take(bytes), onEvent_);
    const auto decoded = chunks_->feed(bytes);
    parser_.feed(text_.take(decoded), onEvent_);
}

} // namespace kelvadrome
