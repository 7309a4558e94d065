// The reply of /v1/cards/list decoded to records; the same bytes go through JSON.parse in peers/json-parse.mjs.

#include "KelvadromeKit/wire/Card.h"
#include "KelvadromeKit/wire/Envelope.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

using namespace kelvadrome;

namespace {

struct CardsOut {
    std::vector<Card> cards;

    static CardsOut decode(const JSONValue& value) {
        return {value.object().required<std::vector<Card>>("cards")};
    }
};

/// bench.sh writes cards-N.json into this folder.
std::string cardsText(std::int64_t count) {
    const char* folder = std::getenv("KELVADROME_BENCH_DATA");
    std::ifstream file(std::string(folder ? folder : ".") + "/cards-" + std::to_string(count) + ".json");
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void decodeCards(benchmark::State& state) {
    HTTPResponse response;
    response.status = 200;
    response.body = cardsText(state.range(0));
    if (response.body.empty()) return state.SkipWithError("no data: run bench.sh");
    for (auto _ : state) {
        const auto out = Envelope::decode<CardsOut>(response);
        if (out.cards.size() != static_cast<std::size_t>(state.range(0))) state.SkipWithError("cards are missing");
    }
}

} // namespace

BENCHMARK(decodeCards)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
