#pragma once

#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/wire/ChunkedDecoder.h"
#include "KelvadromeKit/wire/FDCloser.h"
#include "KelvadromeKit/wire/SSEParser.h"
#include "KelvadromeKit/wire/StreamText.h"

#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// One event stream from connecting to its end: `run` blocks a pool thread, `cancel` ends it from any other.
class EventStream {
public:
    /// `socketPath` and `path` are the socket's and the route's; `onEvent` is called within `run`. Throws
    /// TransportError.
    EventStream(const std::string& socketPath, std::string path, SSEParser::OnEvent onEvent);

    /// Connects, asks, and reads until the peer closes or `cancel` is called. Throws TransportError
    /// otherwise.
    void run();
    void cancel() { closer_.close(); }

private:
    EventStream(
        Descriptor socket, const std::string& socketPath, std::string path, SSEParser::OnEvent onEvent);

    void exchange();
    void end();
    bool connect();
    void takeBytes(std::string_view bytes);
    void takeBody(std::string_view bytes);

    const std::string socketPath_;
    const std::string path_;
    const SSEParser::OnEvent onEvent_;
    // A second descriptor of the same socket: the one that another thread closes may name another file a
    // moment later.
    Descriptor socket_;
    FDCloser closer_;

    std::string head_;
    bool inBody_ = false;
    std::optional<ChunkedDecoder> chunks_;
    StreamText text_;
    SSEParser parser_;
};

} // namespace kelvadrome
