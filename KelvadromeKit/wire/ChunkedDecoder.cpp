#include "KelvadromeKit/wire/ChunkedDecoder.h"

#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/wire/HTTPWire.h"

#include <algorithm>

namespace kelvadrome {

namespace {

std::uint64_t parseSize(std::string_view line) {
    const bool ascii =
        std::ranges::none_of(line, [](char c) { return static_cast<unsigned char>(c) > 0x7F; });
    const auto pieces = Text::split(line, ';', Text::EmptyPieces::drop, 1);
    if (ascii && !pieces.empty()) {
        const auto size = Text::parseInteger(Text::trimBlanks(pieces[0]), 16);
        if (size && *size >= 0)
            return static_cast<std::uint64_t>(*size);
    }
    throw TransportError::malformedResponse("bad chunk size");
}

} // namespace

std::string ChunkedDecoder::feed(std::string_view data) {
    std::string output;
    if (finished_)
        return output;
    // Only what an earlier piece left over makes it necessary to join the two.
    if (buffer_.empty()) {
        const auto used = decode(data, output);
        buffer_.assign(data.substr(used));
    } else {
        buffer_.append(data);
        buffer_.erase(0, decode(buffer_, output));
    }
    return output;
}

std::size_t ChunkedDecoder::decode(std::string_view input, std::string& output) {
    std::size_t used = 0;
    while (!finished_) {
        const auto rest = input.substr(used);
        std::size_t taken = 0;
        if (remaining_) {
            taken = takeData(rest, output);
        } else if (!needCRLF_) {
            taken = takeSizeLine(rest);
        } else if (rest.size() >= 2) {
            needCRLF_ = false; // whatever the two bytes are
            taken = 2;
        }
        if (taken == 0)
            return used;
        used += taken;
    }
    return input.size();
}

std::size_t ChunkedDecoder::takeSizeLine(std::string_view input) {
    const auto end = input.find("\r\n", scanned_);
    if (end == input.npos) {
        scanned_ = input.empty() ? 0 : input.size() - 1; // its last byte may be the CR
        return 0;
    }
    scanned_ = 0;
    const auto size = parseSize(input.substr(0, end));
    if (size == 0) {
        finished_ = true;
    } else {
        remaining_ = size;
    }
    return end + 2;
}

std::size_t ChunkedDecoder::takeData(std::string_view input, std::string& output) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(*remaining_, input.size()));
    if (output.capacity() < count)
        output.reserve(output.size() + input.size());
    output.append(input.substr(0, count));
    *remaining_ -= count;
    if (*remaining_ == 0) {
        remaining_.reset();
        needCRLF_ = true;
    }
    return count;
}

} // namespace kelvadrome
