#pragma once

#include "KelvadromeKit/wire/HTTPWire.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace kelvadrome {

/// Collects a reply as it comes from a socket. A body is read to where it stays: its room is made at once
/// when the head tells its length. Not thread-safe; one buffer per reply.
class ReplyBuffer {
public:
    /// Makes one system call, a read of `fd`; what it gave: a count, 0 at the end of the stream, or -1 with
    /// errno.
    ssize_t readFrom(int fd);

    /// The reply, once the stream has ended. Throws TransportError malformedResponse.
    HTTPResponse finish() &&;

private:
    std::size_t room() const;
    void lookForHead(std::size_t known);

    std::string received_; // the head, and all that follows one that can't be read
    std::optional<HTTPWire::Head> head_;
    std::string body_; // as it came, once the head was read
};

} // namespace kelvadrome
