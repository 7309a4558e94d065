#include "KelvadromeKit/wire/ReplyBuffer.h"

#include <algorithm>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr std::size_t smallestRead = 65536;
/// Of room made for a length that is only promised; a longer body makes its room as it comes.
constexpr std::int64_t mostPromised = 64 << 20;
/// Behind a body, so that the parser of its text, which reads a little further, needs no copy, and the read
/// that finds the end has somewhere to read to.
constexpr std::size_t margin = 64;

} // namespace

ssize_t ReplyBuffer::readFrom(int fd) {
    auto& text = head_ ? body_ : received_;
    const auto known = text.size();
    ssize_t count = 0;
    // Unlike resize this doesn't fill with zeros what the read overwrites.
    text.resize_and_overwrite(known + room(), [&](char* start, std::size_t size) {
        count = ::read(fd, start + known, size - known);
        return known + static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    });
    if (count > 0 && !head_)
        lookForHead(known);
    return count;
}

/// How much the next read may bring. What was made at once for the whole body is used up first.
std::size_t ReplyBuffer::room() const {
    if (!head_)
        return smallestRead;
    const auto left = body_.capacity() - body_.size();
    return left > 0 ? left : std::max(smallestRead, body_.size());
}

void ReplyBuffer::lookForHead(std::size_t known) {
    const auto end = HTTPWire::headerEnd(received_, known);
    if (!end)
        return;
    try {
        head_ = HTTPWire::parseHead(std::string_view(received_).substr(0, *end));
    } catch (const TransportError&) {
        return; // said at the end of the stream, as what went wrong before it comes first
    }
    const auto promised = HTTPWire::contentLength(head_->headers).value_or(0);
    body_.reserve(static_cast<std::size_t>(std::clamp<std::int64_t>(promised, 0, mostPromised)) + margin);
    body_.append(received_, *end);
}

HTTPResponse ReplyBuffer::finish() && {
    if (!head_)
        return HTTPWire::parse(received_); // which throws
    return HTTPWire::response(std::move(*head_), std::move(body_));
}

} // namespace kelvadrome
