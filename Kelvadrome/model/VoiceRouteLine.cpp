#include "Kelvadrome/model/VoiceRouteLine.h"

namespace kelvadrome {

namespace {

/// Why it isn't OpenAI's turn; empty when the user chose so.
std::string withoutOpenAI(const VoiceRoute::Facts& facts, bool capReached) {
    if (facts.selected == "apple-on-device")
        return "";
    if (!facts.openAIEnabled)
        return "OpenAI is turned off";
    if (!facts.keySaved)
        return "there is no OpenAI key";
    return capReached ? "today's voice limit is reached" : "";
}

std::string because(std::string line, const std::string& why) {
    return why.empty() ? line + "." : line + ": " + why + ".";
}

std::string whyOwnKey(const VoiceRoute::Facts& facts) {
    return facts.verifiedStartStop ? "hold to talk is off"
                                   : "no app here was proved to be the one that may be started from the bar";
}

} // namespace

std::string voiceRouteLine(const VoiceRoute& route, const VoiceRoute::Facts& facts,
    const std::optional<std::string>& appName, bool capReached) {
    const auto name = appName.value_or(route.id);
    const std::string unready =
        facts.selected == "parakeet" && !facts.localReady ? "the local model is not ready" : "";
    switch (route.kind) {
    case VoiceRoute::Kind::urlApp:
        return name + ", started and stopped from the bar.";
    case VoiceRoute::Kind::appKey:
        return because(name + " by its own key", whyOwnKey(facts));
    case VoiceRoute::Kind::openAI:
        return because("OpenAI, with your key", unready);
    case VoiceRoute::Kind::local:
        return "The daemon's model, on this machine.";
    case VoiceRoute::Kind::apple:
        return because("Speech on this machine", withoutOpenAI(facts, capReached));
    case VoiceRoute::Kind::none:
        break;
    }
    const auto why = withoutOpenAI(facts, false);
    return "No way to talk: " + (why.empty() ? std::string() : why + ", and ") +
           "there is no speech model on this machine.";
}

} // namespace kelvadrome
