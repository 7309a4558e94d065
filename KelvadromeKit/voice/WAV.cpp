#include "KelvadromeKit/voice/WAV.h"

#include <bit>
#include <cstring>
#include <vector>

namespace kelvadrome::WAV {

namespace {

static_assert(std::endian::native == std::endian::little, "samples go into the file as they lie in memory");

constexpr std::size_t sampleBytes = sizeof(std::int16_t);

class Writer {
public:
    explicit Writer(std::size_t size) { bytes_.reserve(size); }

    void tag(const char* four) { bytes_.append(four, 4); }
    template <class T>
    void number(T value) {
        add(&value, sizeof value);
    }
    void add(const void* from, std::size_t count) {
        if (count > 0)
            bytes_.append(static_cast<const char*>(from), count);
    }
    std::string take() { return std::move(bytes_); }

private:
    std::string bytes_;
};

} // namespace

std::string encode(std::span<const std::int16_t> samples, int sampleRate) {
    const auto data = static_cast<std::uint32_t>(samples.size() * sampleBytes);
    const auto rate = static_cast<std::uint32_t>(sampleRate);
    Writer file(headerBytes + data);
    file.tag("RIFF");
    file.number<std::uint32_t>(36 + data);
    file.tag("WAVE");
    file.tag("fmt ");
    file.number<std::uint32_t>(16);
    file.number<std::uint16_t>(1); // PCM
    file.number<std::uint16_t>(1); // channel
    file.number<std::uint32_t>(rate);
    file.number<std::uint32_t>(rate * sampleBytes);
    file.number<std::uint16_t>(sampleBytes);
    file.number<std::uint16_t>(8 * sampleBytes);
    file.tag("data");
    file.number<std::uint32_t>(data);
    file.add(samples.data(), data);
    return file.take();
}

std::string silence(double seconds, int sampleRate) {
    const auto count = seconds > 0 ? static_cast<std::size_t>(seconds * sampleRate) : 0;
    return encode(std::vector<std::int16_t>(count), sampleRate);
}

double duration(std::size_t bytes, int sampleRate) {
    const auto sound = bytes > headerBytes ? bytes - headerBytes : 0;
    return static_cast<double>(sound) / (static_cast<double>(sampleBytes) * sampleRate);
}

} // namespace kelvadrome::WAV
