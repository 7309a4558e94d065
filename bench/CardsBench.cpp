// The reply of /v1/cards/list decoded to records; the same bytes go through JSON.parse in
// drivers/json-parse.mjs.
//
// Both sides are measured with memory that is already there, which the peer's heap keeps by itself: a page
// that the system has to give first costs more than the decoding of what stands on it. The last row shows
// that cost.

#include "KelvadromeKit/wire/Card.h"
#include "KelvadromeKit/wire/Envelope.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <malloc.h>
#include <vector>

using namespace kelvadrome;

namespace {

struct CardsOut {
    std::vector<Card> cards;

    static CardsOut decode(const JSONValue& value) {
        return {value.object().required<std::vector<Card>>("cards")};
    }
};

/// bench.sh writes cards-N.json into this folder. It is read in pieces, as the transport reads a reply: what
/// a string has allotted beyond its end decides whether the parser needs a copy.
std::string cardsText(std::int64_t count) {
    const char* folder = std::getenv("KELVADROME_BENCH_DATA");
    std::ifstream file(std::string(folder ? folder : ".") + "/cards-" + std::to_string(count) + ".json");
    std::vector<char> piece(65536);
    std::string text;
    while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())) || file.gcount() > 0)
        text.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    return text;
}

void decodeCards(benchmark::State& state, bool freshMemory) {
    HTTPResponse response;
    response.status = 200;
    response.body = cardsText(state.range(0));
    if (response.body.empty())
        return state.SkipWithError("no data: run bench.sh");
    mallopt(M_MMAP_MAX, 0); // what is freed stays with the process until it is trimmed
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    if (!freshMemory)
        Envelope::decode<CardsOut>(response);
    for (auto _ : state) {
        if (freshMemory) {
            state.PauseTiming();
            malloc_trim(0);
            state.ResumeTiming();
        }
        const auto out = Envelope::decode<CardsOut>(response);
        if (out.cards.size() != static_cast<std::size_t>(state.range(0)))
            state.SkipWithError("cards are missing");
    }
}

void decodeCards(benchmark::State& state) {
    decodeCards(state, false);
}

void decodeCardsIntoFreshMemory(benchmark::State& state) {
    decodeCards(state, true);
}

} // namespace

BENCHMARK(decodeCards)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(decodeCardsIntoFreshMemory)->Arg(100000)->Unit(benchmark::kMillisecond);
