#pragma once

#include "KelvadromeKit/voice/SpeechEngine.h"

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// The settings and the daemon know the on-device route by these words.
enum class AppleSpeechState { ready, needsAsset, unknown };
std::string_view rawValue(AppleSpeechState state); // "ready", "needs_asset", "unknown"

/// Transcribes on this machine, by whatever engine the system brings.
namespace AppleTranscriber {

enum class Failure { unsupportedLocale, noAudioFormat, conversion };

class Error : public std::exception {
public:
    explicit Error(Failure failure) : failure_(failure) {}
    Failure failure() const { return failure_; }
    const char* what() const noexcept override;

private:
    Failure failure_;
};

/// The supported language to use for a preferred one ("de-AT", or "de_AT.UTF-8" as the environment has it):
/// the very one, else one of its language, else "en-US", else none.
std::optional<std::string> locale(const SpeechEngine& engine, std::string_view preferred);
bool installed(const SpeechEngine& engine, std::string_view locale);
/// `ready` when the language that would be used has its model here, `needsAsset` when it lacks, `unknown`
/// without any language to use.
AppleSpeechState state(const SpeechEngine& engine, std::string_view preferred);
/// The words, in that language. Throws Error, or what the engine throws.
Task<std::string> transcribe(std::shared_ptr<SpeechEngine> engine, Clip pcm16k, std::string preferred);

} // namespace AppleTranscriber

} // namespace kelvadrome
