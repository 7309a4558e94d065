#include "KelvadromeKit/voice/AppleTranscriber.h"

#include <algorithm>

namespace kelvadrome {

namespace {

char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// "de_AT.UTF-8@euro" and "de-AT" alike: "de-at".
std::string identifier(std::string_view locale) {
    std::string plain(locale.substr(0, locale.find_first_of(".@")));
    std::ranges::transform(plain, plain.begin(), [](char c) { return c == '_' ? '-' : lower(c); });
    return plain;
}

std::string language(const std::string& identifier) {
    return identifier.substr(0, identifier.find('-'));
}

} // namespace

std::string_view rawValue(AppleSpeechState state) {
    switch (state) {
    case AppleSpeechState::ready:
        return "ready";
    case AppleSpeechState::needsAsset:
        return "needs_asset";
    case AppleSpeechState::unknown:
        break;
    }
    return "unknown";
}

const char* AppleTranscriber::Error::what() const noexcept {
    switch (failure_) {
    case Failure::unsupportedLocale:
        return "no language that this machine can hear";
    case Failure::noAudioFormat:
        return "no form of audio that the engine takes";
    case Failure::conversion:
        break;
    }
    return "the audio could not be converted";
}

std::optional<std::string> AppleTranscriber::locale(const SpeechEngine& engine, std::string_view preferred) {
    const auto supported = engine.supportedLocales();
    const auto wanted = identifier(preferred);
    const auto first = [&](auto fits) -> std::optional<std::string> {
        const auto found = std::ranges::find_if(supported, fits);
        return found == supported.end() ? std::nullopt : std::optional(*found);
    };
    if (auto same = first([&](const auto& one) { return identifier(one) == wanted; }))
        return same;
    if (auto close = first([&](const auto& one) { return language(identifier(one)) == language(wanted); }))
        return close;
    return first([](const auto& one) { return identifier(one) == "en-us"; });
}

bool AppleTranscriber::installed(const SpeechEngine& engine, std::string_view locale) {
    const auto there = engine.installedLocales();
    return std::ranges::any_of(there, [&](const auto& one) { return identifier(one) == identifier(locale); });
}

AppleSpeechState AppleTranscriber::state(const SpeechEngine& engine, std::string_view preferred) {
    const auto used = locale(engine, preferred);
    if (!used)
        return AppleSpeechState::unknown;
    return installed(engine, *used) ? AppleSpeechState::ready : AppleSpeechState::needsAsset;
}

Task<std::string> AppleTranscriber::transcribe(
    std::shared_ptr<SpeechEngine> engine, Clip pcm16k, std::string preferred) {
    const auto used = locale(*engine, preferred);
    if (!used || !installed(*engine, *used))
        throw Error(Failure::unsupportedLocale);
    co_return co_await engine->transcribe(std::move(pcm16k), *used);
}

} // namespace kelvadrome
