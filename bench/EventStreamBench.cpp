// Event stream parsing, whole (as the transport reads it, 16 KiB at a time) and in 1-byte pieces. The limit
// is to find the ends of the lines: every event lies between four of them.

#include "KelvadromeKit/wire/SSEParser.h"

#include <benchmark/benchmark.h>
#include <cstring>

using namespace kelvadrome;

namespace {

/// The same text as peers/event-stream.mjs makes.
std::string streamText(std::size_t bytes) {
    std::string text;
    for (std::size_t i = 0; text.size() < bytes; ++i) {
        const auto number = std::to_string(i);
        text += "event: card.opened\nid: " + number + "\ndata: {\"id\":\"card-" + number +
                "\",\"title\":\"Should the migration run against staging first?\"}\n\n";
    }
    return text;
}

void parseStream(benchmark::State& state) {
    const auto text = streamText(static_cast<std::size_t>(state.range(0)) << 20);
    const auto piece = static_cast<std::size_t>(state.range(1));
    for (auto _ : state) {
        SSEParser parser;
        std::size_t events = 0;
        for (std::size_t at = 0; at < text.size(); at += piece) {
            parser.feed(std::string_view(text).substr(at, piece), [&events](const auto&) { ++events; });
        }
        if (events == 0)
            state.SkipWithError("no events");
    }
}

void findLineEnds(benchmark::State& state) {
    const auto text = streamText(static_cast<std::size_t>(state.range(0)) << 20);
    for (auto _ : state) {
        std::size_t lines = 0;
        const char* at = text.data();
        const char* const end = at + text.size();
        while (const void* found = std::memchr(at, '\n', static_cast<std::size_t>(end - at))) {
            at = static_cast<const char*>(found) + 1;
            ++lines;
        }
        if (lines == 0)
            state.SkipWithError("no lines");
    }
}

} // namespace

BENCHMARK(findLineEnds)->Arg(1)->Arg(64)->Unit(benchmark::kMillisecond);
// The arguments: MiB of text, bytes a piece.
BENCHMARK(parseStream)
    ->Args({1, 16384})
    ->Args({64, 16384})
    ->Args({1, 1})
    ->Args({64, 1})
    ->Unit(benchmark::kMillisecond);
