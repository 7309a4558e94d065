#include "KelvadromeKit/wire/HTTPWire.h"

#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/wire/ChunkedDecoder.h"

#include <fmt/format.h>

#include <cstring>

namespace kelvadrome {

namespace {

std::string describe(TransportError::Kind kind, std::int64_t number, const std::string& words) {
    using enum TransportError::Kind;
    const auto because = [&](const char* what) {
        return fmt::format("{}: {}", what, std::strerror(static_cast<int>(number)));
    };
    switch (kind) {
    case socketPathTooLong:
        return fmt::format("socket path too long: {} bytes", number);
    case connectFailed:
        return because("connect failed");
    case writeFailed:
        return because("write failed");
    case readFailed:
        return because("read failed");
    case malformedResponse:
        return "malformed response: " + words;
    case timedOut:
        return "timed out";
    }
    return {};
}

} // namespace

TransportError::TransportError(Kind kind, std::int64_t number, std::string words)
    : kind_(kind), number_(number), words_(std::move(words)), description_(describe(kind_, number_, words_)) {
}

TransportError TransportError::socketPathTooLong(std::size_t bytes) {
    return {Kind::socketPathTooLong, static_cast<std::int64_t>(bytes), {}};
}

TransportError TransportError::connectFailed(int error) {
    return {Kind::connectFailed, error, {}};
}

TransportError TransportError::writeFailed(int error) {
    return {Kind::writeFailed, error, {}};
}

TransportError TransportError::readFailed(int error) {
    return {Kind::readFailed, error, {}};
}

TransportError TransportError::malformedResponse(std::string words) {
    return {Kind::malformedResponse, 0, std::move(words)};
}

TransportError TransportError::timedOut() {
    return {Kind::timedOut, 0, {}};
}

namespace HTTPWire {

namespace {

constexpr std::string_view lineEnd = "\r\n";

std::int64_t parseStatusLine(std::string_view line) {
    const auto pieces = Text::split(line, ' ', Text::EmptyPieces::drop, 2);
    if (pieces.size() >= 2 && pieces[0].starts_with("HTTP/1.")) {
        if (const auto status = Text::parseInteger(pieces[1]))
            return *status;
    }
    throw TransportError::malformedResponse("bad status line");
}

void addHeader(std::string_view line, std::map<std::string, std::string>& headers) {
    const auto colon = line.find(':');
    if (colon == line.npos)
        return;
    const auto value = Text::trimBlanks(line.substr(colon + 1));
    const auto [place, fresh] =
        headers.try_emplace(Text::lowercasedASCII(Text::trimBlanks(line.substr(0, colon))), value);
    if (!fresh)
        place->second.append(", ").append(value);
}

std::string decodeChunks(std::string_view raw) {
    ChunkedDecoder decoder;
    auto body = decoder.feed(raw);
    if (!decoder.finished())
        throw TransportError::malformedResponse("chunked body ended early");
    return body;
}

} // namespace

std::string request(std::string_view method, std::string_view path, std::optional<std::string_view> body,
    const std::map<std::string, std::string>& headers) {
    auto text = fmt::format(
        "{} {} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nUser-Agent: kelvadrome-macOS\r\n", method,
        path);
    for (const auto& [key, value] : headers)
        text.append(key).append(": ").append(value).append(lineEnd);
    if (body) {
        if (!headers.contains("Content-Type"))
            text += "Content-Type: application/json\r\n";
        text += fmt::format("Content-Length: {}\r\n", body->size());
    } else if (method != "GET") {
        text += "Content-Length: 0\r\n";
    }
    text += lineEnd;
    if (body)
        text += *body;
    return text;
}

std::optional<std::size_t> headerEnd(std::string_view data, std::size_t from) {
    const auto at = data.find("\r\n\r\n", from < 3 ? 0 : from - 3);
    if (at == data.npos)
        return std::nullopt;
    return at + 4;
}

Head parseHead(std::string_view data) {
    if (!Text::isValidUTF8(data))
        throw TransportError::malformedResponse("header is not UTF-8");
    std::optional<Head> head;
    for (std::size_t at = 0; at < data.size();) {
        const auto end = std::min(data.find(lineEnd, at), data.size());
        const auto line = data.substr(at, end - at);
        at = end + lineEnd.size();
        if (line.empty())
            continue;
        if (head) {
            addHeader(line, head->headers);
        } else {
            head.emplace().status = parseStatusLine(line);
        }
    }
    if (!head)
        throw TransportError::malformedResponse("empty header");
    return std::move(*head);
}

bool isChunked(const std::map<std::string, std::string>& headers) {
    const auto found = headers.find("transfer-encoding");
    return found != headers.end() && Text::lowercasedASCII(found->second).contains("chunked");
}

std::optional<std::int64_t> contentLength(const std::map<std::string, std::string>& headers) {
    const auto found = headers.find("content-length");
    return found == headers.end() ? std::nullopt : Text::parseInteger(found->second);
}

HTTPResponse response(Head head, std::string rawBody) {
    if (isChunked(head.headers)) {
        rawBody = decodeChunks(rawBody);
    } else if (const auto length = contentLength(head.headers)) {
        // A negative length reads as a number that no body reaches.
        const auto wanted = static_cast<std::uint64_t>(*length);
        if (rawBody.size() < wanted)
            throw TransportError::malformedResponse("body shorter than Content-Length");
        rawBody.resize(wanted);
    }
    return {head.status, std::move(head.headers), std::move(rawBody)};
}

HTTPResponse parse(std::string_view data) {
    const auto end = headerEnd(data);
    if (!end)
        throw TransportError::malformedResponse("no header end");
    return response(parseHead(data.substr(0, *end)), std::string(data.substr(*end)));
}

} // namespace HTTPWire

} // namespace kelvadrome
