#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct ps_decoder_s;

namespace kelvadrome {

/// One decoder of PocketSphinx with the US English model, and what people tell coding agents on top of it.
/// Takes about half a second to make and 110 MB to keep. Blocks; any thread, one at a time.
class SphinxDecoder {
public:
    /// The folder of an en-us model. Throws std::runtime_error when it can't be loaded.
    explicit SphinxDecoder(const std::string& model);
    ~SphinxDecoder();
    SphinxDecoder(const SphinxDecoder&) = delete;
    SphinxDecoder& operator=(const SphinxDecoder&) = delete;

    /// Whether all files of a model are in the folder.
    static bool isModel(const std::string& folder);

    /// The words of 16 kHz samples. Looks at `stop` every few seconds of sound; what was heard until then is
    /// the result. Throws std::runtime_error.
    std::string hear(std::span<const std::int16_t> samples, const std::atomic<bool>& stop);

private:
    void addWords();
    void addLanguage(const std::string& model);
    std::string hearPiece(std::span<const std::int16_t> piece);

    struct Free {
        void operator()(ps_decoder_s* decoder) const;
    };
    std::unique_ptr<ps_decoder_s, Free> decoder_;
};

/// Where to cut a long clip: from the front, a piece that ends in the quietest moment between 6 and 12 s, or
/// all of what is shorter. A decoder's memory grows with what it hears in one go.
std::span<const std::int16_t> firstPiece(std::span<const std::int16_t> samples);

} // namespace kelvadrome
