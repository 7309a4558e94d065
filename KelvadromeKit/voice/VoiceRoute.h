#pragma once

#include "KelvadromeKit/voice/AppleTranscriber.h"
#include "KelvadromeKit/voice/AudioSource.h"

#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// Who turns the user's speech into text.
struct VoiceRoute {
    /// `urlApp`: a dictation app, driven by URLs. `appKey`: one that only its own key starts. `openAI`,
    /// `apple` and `local` are recorded here: for the cloud, for this machine's own speech engine, for the
    /// daemon's model.
    enum class Kind { urlApp, appKey, openAI, apple, local, none };

    struct Facts {
        std::string selected; // an app's id, or one of the built-in ids
        bool urlControl = false;
        bool verifiedStartStop = false;
        bool openAIEnabled = false;
        bool keySaved = false;
        AppleSpeechState apple = AppleSpeechState::unknown;
        bool localReady = false;
    };

    Kind kind = Kind::none;
    std::string id = {}; // of the app, for `urlApp` and `appKey`

    /// "openai", "apple-on-device", "parakeet" and "none".
    static bool isBuiltin(std::string_view id);
    static VoiceRoute decide(const Facts& facts);

    bool recordsHere() const { return kind == Kind::openAI || kind == Kind::apple || kind == Kind::local; }
    /// Whether a hold of the bar's key talks.
    bool holdCapable() const { return kind == Kind::urlApp || recordsHere(); }
    /// The standing line of the bar. `barKey` is the key's label.
    std::string hint(const std::optional<std::string>& appName, const std::string& barKey) const;

    bool operator==(const VoiceRoute&) const = default;
};

namespace BarInput {

bool micUsable(const VoiceRoute& route, const MicrophoneState& microphone);
/// Why there is only typing; absent when there isn't.
std::optional<std::string> textModeLine(const VoiceRoute& route, const MicrophoneState& microphone);

} // namespace BarInput

} // namespace kelvadrome
