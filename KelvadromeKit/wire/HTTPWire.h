#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kelvadrome {

struct HTTPResponse {
    std::int64_t status = 0;
    std::map<std::string, std::string> headers; // keys lower-cased; repeated headers joined with ", "
    std::string body;                           // de-chunked, or cut to Content-Length

    bool operator==(const HTTPResponse&) const = default;
};

/// What the socket did. It has no words for a person: who shows a failure says it in words of its own.
class TransportError : public std::exception {
public:
    enum class Kind {
        socketPathTooLong,
        connectFailed,
        writeFailed,
        readFailed,
        malformedResponse,
        timedOut
    };

    static TransportError socketPathTooLong(std::size_t bytes);
    static TransportError connectFailed(int error);
    static TransportError writeFailed(int error);
    static TransportError readFailed(int error);
    static TransportError malformedResponse(std::string words);
    static TransportError timedOut();

    Kind kind() const { return kind_; }
    /// The path's byte count or the errno; 0 for the other kinds.
    std::int64_t number() const { return number_; }
    /// The words of a malformed response, otherwise empty.
    const std::string& words() const { return words_; }
    const char* what() const noexcept override { return description_.c_str(); }
    bool operator==(const TransportError& other) const {
        return kind_ == other.kind_ && number_ == other.number_ && words_ == other.words_;
    }

private:
    TransportError(Kind kind, std::int64_t number, std::string words);

    Kind kind_;
    std::int64_t number_;
    std::string words_;
    std::string description_;
};

/// HTTP/1.1 as it stands on the local socket: one request and one reply on a connection of their own.
namespace HTTPWire {

struct Head {
    std::int64_t status = 0;
    std::map<std::string, std::string> headers;
};

/// The exact bytes of a request. `path` carries its query already; nothing is escaped.
std::string request(std::string_view method, std::string_view path, std::optional<std::string_view> body,
    const std::map<std::string, std::string>& headers);

/// The offset just past the first CR LF CR LF. None ends before `from`, the caller having looked already.
std::optional<std::size_t> headerEnd(std::string_view data, std::size_t from = 0);

/// The bytes up to and including the blank line. Throws TransportError malformedResponse.
Head parseHead(std::string_view data);

/// Whether the body goes through a ChunkedDecoder.
bool isChunked(const std::map<std::string, std::string>& headers);

/// The length that the headers promise, if they do; perhaps one that no body can have.
std::optional<std::int64_t> contentLength(const std::map<std::string, std::string>& headers);

/// The reply with this head and all that followed it up to the end of the stream. Throws TransportError
/// malformedResponse.
HTTPResponse response(Head head, std::string rawBody);

/// A whole reply, read to the end of the stream. Throws TransportError malformedResponse.
HTTPResponse parse(std::string_view data);

} // namespace HTTPWire

} // namespace kelvadrome
