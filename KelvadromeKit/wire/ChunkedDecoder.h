#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// Takes the chunked transfer coding off a body, fed in pieces of any size: any split gives the same bytes.
/// Keeps no more than an unfinished size line. Not thread-safe; one decoder per body.
class ChunkedDecoder {
public:
    /// The body's bytes that this piece made available. Throws TransportError malformedResponse "bad chunk
    /// size".
    std::string feed(std::string_view data);

    /// The chunk of size zero was seen; what follows it (a trailer, the last line end) is never looked at.
    bool finished() const { return finished_; }

private:
    std::size_t decode(std::string_view input, std::string& output);
    std::size_t takeSizeLine(std::string_view input);
    std::size_t takeData(std::string_view input, std::string& output);

    std::string buffer_;                     // received and not yet consumed
    std::size_t scanned_ = 0;                // no line end begins before this offset of it
    std::optional<std::uint64_t> remaining_; // bytes left in this chunk's data; absent between chunks
    bool needCRLF_ = false;                  // the two bytes that end a chunk's data are still to come
    bool finished_ = false;
};

} // namespace kelvadrome
