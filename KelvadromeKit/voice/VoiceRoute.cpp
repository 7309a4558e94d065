#include "KelvadromeKit/voice/VoiceRoute.h"

#include <algorithm>
#include <array>

namespace kelvadrome {

namespace {

constexpr std::string_view apple = "apple-on-device";
constexpr std::string_view local = "parakeet";
constexpr std::array<std::string_view, 4> builtinIds{"openai", apple, local, "none"};

} // namespace

bool VoiceRoute::isBuiltin(std::string_view id) {
    return std::ranges::find(builtinIds, id) != builtinIds.end();
}

VoiceRoute VoiceRoute::decide(const Facts& facts) {
    if (!isBuiltin(facts.selected)) {
        const bool driven = facts.urlControl && facts.verifiedStartStop;
        return {driven ? Kind::urlApp : Kind::appKey, facts.selected};
    }
    if (facts.selected == local && facts.localReady)
        return {Kind::local};
    if (facts.selected != apple && facts.openAIEnabled && facts.keySaved)
        return {Kind::openAI};
    if (facts.apple == AppleSpeechState::ready)
        return {Kind::apple};
    return {Kind::none};
}

std::string VoiceRoute::hint(const std::optional<std::string>& appName, const std::string& barKey) const {
    switch (kind) {
    case Kind::urlApp:
        return "Hold " + barKey + " to talk (" + appName.value_or("your dictation app") + ").";
    case Kind::appKey:
        return "Use your " + appName.value_or("dictation app") + " key to talk.";
    case Kind::openAI:
    case Kind::apple:
        return "Hold " + barKey + " to talk, or type.";
    case Kind::local:
        return "Hold " + barKey + " to talk, on this Mac, or type.";
    case Kind::none:
        break;
    }
    return "Type your request, or add a dictation app in Settings, Voice.";
}

bool BarInput::micUsable(const VoiceRoute& route, const MicrophoneState& microphone) {
    if (route.recordsHere())
        return microphone.inputDevice && microphone.authorized.value_or(true);
    return route.kind == VoiceRoute::Kind::urlApp;
}

std::optional<std::string> BarInput::textModeLine(
    const VoiceRoute& route, const MicrophoneState& microphone) {
    if (!route.recordsHere())
        return std::nullopt;
    if (!microphone.inputDevice)
        return "No microphone found. Type your request.";
    if (microphone.authorized == false)
        return "Microphone access is off. Type your request, or turn it on in System Settings.";
    return std::nullopt;
}

} // namespace kelvadrome
