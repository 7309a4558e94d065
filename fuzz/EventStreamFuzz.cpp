// Bytes in pieces become valid text, and that text gives the same events in pieces and as a whole.

#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/wire/SSEParser.h"
#include "KelvadromeKit/wire/StreamText.h"

#include "fuzz/Pieces.h"
#include "fuzz/Require.h"

using namespace kelvadrome;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    StreamText reader;
    SSEParser parser;
    std::vector<SSEParser::Event> events;
    std::string whole;
    for (const auto piece : fuzz::pieces(bytes, size)) {
        const auto text = reader.take(piece);
        fuzz::require(Text::isValidUTF8(text));
        whole += text;
        for (auto& event : parser.feed(text))
            events.push_back(std::move(event));
    }
    fuzz::require(SSEParser().feed(whole) == events);
    return 0;
}
