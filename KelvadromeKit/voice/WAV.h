#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

/// Recordings as files: signed 16-bit mono.
namespace kelvadrome::WAV {

inline constexpr std::size_t headerBytes = 44;

std::string encode(std::span<const std::int16_t> samples, int sampleRate);
/// The encoding of that much silence, in whole samples.
std::string silence(double seconds, int sampleRate);
/// Seconds of sound in a file of that many bytes; 0 for one that is shorter than its header.
double duration(std::size_t bytes, int sampleRate);

} // namespace kelvadrome::WAV
