// Chunks in pieces decode to what they decode to as a whole.

#include "KelvadromeKit/wire/ChunkedDecoder.h"
#include "KelvadromeKit/wire/HTTPWire.h"

#include "fuzz/Pieces.h"
#include "fuzz/Require.h"

using namespace kelvadrome;

namespace {

struct Result {
    std::string output;
    bool finished = false;
    bool refused = false;

    bool operator==(const Result&) const = default;
};

Result decode(const std::vector<std::string_view>& pieces) {
    ChunkedDecoder decoder;
    Result result;
    try {
        for (const auto piece : pieces)
            result.output += decoder.feed(piece);
    } catch (const TransportError&) {
        return {"", false, true};
    }
    result.finished = decoder.finished();
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const auto pieces = fuzz::pieces(bytes, size);
    if (pieces.empty())
        return 0;
    const std::string_view whole(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    fuzz::require(decode(pieces) == decode({whole}));
    return 0;
}
