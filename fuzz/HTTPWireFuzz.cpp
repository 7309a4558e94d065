// A reply of any bytes is read or refused in the known words, and its body is never longer than what came.

#include "KelvadromeKit/wire/HTTPWire.h"

#include "fuzz/Require.h"
#include <set>

using namespace kelvadrome;
using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const std::set<std::string> known{"no header end", "header is not UTF-8", "empty header",
        "bad status line", "bad chunk size", "chunked body ended early", "body shorter than Content-Length"};
    const std::string reply(reinterpret_cast<const char*>(bytes), size);
    try {
        const auto response = HTTPWire::parse(reply);
        const auto end = HTTPWire::headerEnd(reply);
        require(end && response.body.size() <= size - *end);
    } catch (const TransportError& error) {
        require(error.kind() == TransportError::Kind::malformedResponse && known.contains(error.words()));
    }
    return 0;
}
