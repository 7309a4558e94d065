#include "Kelvadrome/platform/linux/audio/SphinxDecoder.h"

#include "Kelvadrome/platform/linux/audio/RequestLanguage.h"
#include "Kelvadrome/platform/linux/audio/RequestPhrases.h"
#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/voice/AudioSource.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <map>
#include <pocketsphinx.h>
#include <sphinxbase/err.h>
#include <sphinxbase/ngram_model.h>
#include <stdexcept>
#include <sys/mman.h>

namespace kelvadrome {

namespace {

constexpr const char* acoustics = "en-us";
constexpr const char* dictionary = "cmudict-en-us.dict";
constexpr const char* language = "en-us.lm.bin";

// Measured with scripts/voice-error-rate: see docs/voice.md.
constexpr float requestShare = 0.9F; // of our own language model beside the big one
constexpr double wordPenalty = 0.3;  // below 1: fewer, longer words
constexpr const char* search = "requests";

using OwnedLanguage =
    std::unique_ptr<ngram_model_t, decltype([](ngram_model_t* model) { ngram_model_free(model); })>;

OwnedLanguage readLanguage(ps_decoder_t* decoder, const std::string& path, ngram_file_type_t type) {
    OwnedLanguage model(
        ngram_model_read(ps_get_config(decoder), path.c_str(), type, ps_get_logmath(decoder)));
    if (!model)
        throw std::runtime_error("the language model " + path + " can't be read");
    return model;
}

/// The library reads models from files only.
OwnedLanguage readRequests(ps_decoder_t* decoder) {
    const Descriptor file(::memfd_create("requests", MFD_CLOEXEC));
    const auto text = requestLanguageModel(RequestPhrases::templates());
    for (std::string_view rest = text; !rest.empty();) {
        const auto written = ::write(file.get(), rest.data(), rest.size());
        if (written <= 0)
            throw std::runtime_error("no memory for the language model of requests");
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    return readLanguage(decoder, "/proc/self/fd/" + std::to_string(file.get()), NGRAM_ARPA);
}

} // namespace

void SphinxDecoder::Free::operator()(ps_decoder_s* decoder) const {
    ps_free(decoder);
}

SphinxDecoder::SphinxDecoder(const std::string& model) {
    // Its log is long, and goes to standard error. A library that isn't told exits where a file is missing.
    err_set_logfp(nullptr);
    if (!isModel(model))
        throw std::runtime_error("there is no speech model in " + model);
    cmd_ln_t* const config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm",
        Files::join(model, acoustics).c_str(), "-dict", Files::join(model, dictionary).c_str(), nullptr);
    if (!config)
        throw std::runtime_error("PocketSphinx doesn't take its options");
    cmd_ln_set_float_r(config, "-wip", wordPenalty);
    decoder_.reset(ps_init(config));
    cmd_ln_free_r(config);
    if (!decoder_)
        throw std::runtime_error("PocketSphinx doesn't take the model in " + model);
    addWords(); // before the languages, which are searched with the words that are known by then
    addLanguage(model);
}

SphinxDecoder::~SphinxDecoder() = default;

bool SphinxDecoder::isModel(const std::string& folder) {
    return std::ranges::all_of(std::array{dictionary, language, "en-us/mdef", "en-us/means", "en-us/sendump"},
        [&](const char* file) { return Files::exists(Files::join(folder, file)); });
}

void SphinxDecoder::addWords() {
    for (const auto& [word, phones] : RequestPhrases::words()) {
        char* const known = ps_lookup_word(decoder_.get(), word);
        std::free(known);
        // A further way to say a known word has a number.
        const auto name = known ? std::string(word) + "(9)" : std::string(word);
        if (ps_add_word(decoder_.get(), name.c_str(), phones, FALSE) < 0)
            throw std::runtime_error("PocketSphinx doesn't take the word " + name);
    }
}

void SphinxDecoder::addLanguage(const std::string& model) {
    const auto big = readLanguage(decoder_.get(), Files::join(model, language), NGRAM_AUTO);
    const auto requests = readRequests(decoder_.get());
    std::array models{big.get(), requests.get()};
    std::array shares{1 - requestShare, requestShare};
    std::string first = "english", second = search;
    std::array names{first.data(), second.data()};
    const OwnedLanguage both(
        ngram_model_set_init(ps_get_config(decoder_.get()), models.data(), names.data(), shares.data(), 2));
    if (!both || ps_set_lm(decoder_.get(), search, both.get()) < 0 ||
        ps_set_search(decoder_.get(), search) < 0)
        throw std::runtime_error("PocketSphinx doesn't take the language models");
}

std::string SphinxDecoder::hear(std::span<const std::int16_t> samples, const std::atomic<bool>& stop) {
    std::string heard;
    while (!samples.empty() && !stop) {
        const auto piece = firstPiece(samples);
        samples = samples.subspan(piece.size());
        const auto words = hearPiece(piece);
        heard += heard.empty() || words.empty() ? words : " " + words;
    }
    return heard;
}

std::string SphinxDecoder::hearPiece(std::span<const std::int16_t> piece) {
    auto* const decoder = decoder_.get();
    if (ps_start_utt(decoder) < 0)
        throw std::runtime_error("PocketSphinx doesn't begin");
    const bool done = ps_process_raw(decoder, piece.data(), piece.size(), FALSE, TRUE) >= 0;
    if (ps_end_utt(decoder) < 0 || !done)
        throw std::runtime_error("PocketSphinx gave up");
    int32 score = 0;
    const char* const words = ps_get_hyp(decoder, &score);
    return std::string(Text::trimWhitespace(words ? words : ""));
}

std::span<const std::int16_t> firstPiece(std::span<const std::int16_t> samples) {
    constexpr std::size_t shortest = 6 * voiceSampleRate, longest = 12 * voiceSampleRate;
    constexpr std::size_t window = voiceSampleRate / 5, step = window / 4;
    if (samples.size() <= longest)
        return samples;
    std::size_t cut = longest;
    auto quietest = std::numeric_limits<std::int64_t>::max();
    for (auto from = shortest; from + window <= longest; from += step) {
        std::int64_t loudness = 0;
        for (const auto sample : samples.subspan(from, window))
            loudness += std::abs(static_cast<int>(sample));
        if (loudness < quietest) {
            quietest = loudness;
            cut = from + window / 2;
        }
    }
    return samples.first(cut);
}

} // namespace kelvadrome
