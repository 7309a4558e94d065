#pragma once

#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Task.h"
#include "KelvadromeKit/wire/HTTPWire.h"
#include "KelvadromeKit/wire/SSEParser.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// HTTP over the daemon's socket: a fresh connection for each exchange, none kept between calls. Blocking
/// calls run on the pool. May be used from any thread; the pool must outlive it.
class UnixSocketTransport {
public:
    /// The longest path, in bytes of UTF-8, that is tried at all.
    static constexpr std::size_t maxPathBytes = 103;

    UnixSocketTransport(std::string path, BackgroundPool& pool) : path_(std::move(path)), pool_(&pool) {}

    const std::string& path() const { return path_; }

    /// A connected socket. With a time-out (seconds) each read and write on it is bounded by that. Blocks.
    Descriptor openSocket(std::optional<double> timeout) const;

    /// Whether something accepts a connection within a second; no bytes are exchanged.
    Task<bool> isAlive() const;

    /// One exchange without a body; blocks. The time-out (seconds) bounds each read by itself. Throws
    /// TransportError.
    HTTPResponse exchange(std::string_view method, std::string_view path, double timeout) const;

    /// One exchange. The time-out (seconds) bounds each read by itself. Throws TransportError.
    Task<HTTPResponse> send(std::string method, std::string path, std::optional<std::string> body,
        std::map<std::string, std::string> headers, double timeout) const;

    /// Holds an event stream open and hands each event, in order, to `onEvent` on a pool thread. Returns when
    /// the peer closes or the task is cancelled; throws TransportError otherwise. Doesn't reconnect.
    Task<> stream(std::string path, SSEParser::OnEvent onEvent) const;

    /// Writes every byte or throws TransportError writeFailed.
    static void writeAll(int fd, std::string_view data);

private:
    std::string path_;
    BackgroundPool* pool_;
};

} // namespace kelvadrome
