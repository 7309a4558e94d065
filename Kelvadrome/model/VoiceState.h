#pragma once

#include "KelvadromeKit/page/SecretStore.h"
#include "KelvadromeKit/voice/AppleTranscriber.h"
#include "KelvadromeKit/voice/AudioSource.h"
#include "KelvadromeKit/voice/VerifiedDictationApp.h"
#include "KelvadromeKit/voice/VoiceScan.h"
#include "KelvadromeKit/voice/VoiceSettings.h"

#include <optional>
#include <string>

namespace kelvadrome {

/// What VoiceModel knows, for those that show it.
struct VoiceState {
    std::optional<VoiceScan> scan; // absent until read, and for a daemon without voice
    VoiceSettingsWire settings;    // with the changes that are on their way to the daemon
    bool settingsKnown = false;    // the daemon has told them; else they are the defaults
    AppleSpeechState apple = AppleSpeechState::unknown;
    std::optional<VerifiedDictationApp> verified;
    MicrophoneState microphone;
    bool listening = false;            // the microphone records
    bool transcribing = false;         // a clip is being turned into text
    std::optional<std::string> status; // the line under the bar
    bool capReached = false;           // the day's limit was met in this run
    std::optional<double> usedMinutes; // of the day's limit, as far as the daemon has told

    // For the settings
    SecretField key;                     // the speech key; `text` stays empty, `message` is of the last press
    std::optional<std::string> saveLine; // why the last change of a setting wasn't saved
    bool testing = false;                // the key is being tried
    std::optional<std::string> testLine; // what came of it
};

} // namespace kelvadrome
