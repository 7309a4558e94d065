#pragma once

#include "Kelvadrome/model/SettingsRows.h"
#include "Kelvadrome/model/VoiceState.h"
#include "KelvadromeKit/voice/VoiceRoute.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// What the settings of voice show.
struct VoiceFacts {
    VoiceState voice = {};
    VoiceRoute route = {};
    std::string routeLine = {};
    std::string selectedId = "none";
    std::optional<BarKeyState> key = {}; // absent without a command bar
    std::string typedKey = {};           // of OpenAI, while the user types it
    bool recordingKey = false;           // the next keys are the bar's new key
    std::string keyNotice = {};          // why the last keys were none
};

/// The groups of the pane, from top to bottom; which there are depends on `key` alone.
std::vector<SettingsGroup> voicePane(const VoiceFacts& facts, const SettingsFacts::Place& place);

/// What may be chosen to speak with: the built-in ids, then the dictation apps.
struct VoiceChoice {
    std::string id;
    std::string words;
};
std::vector<VoiceChoice> voiceChoices(const VoiceFacts& facts);
/// The day's limits to choose from, in minutes, with the one in force among them.
std::vector<std::int64_t> voiceLimits(std::int64_t inForce);

/// Ids of the rows that can be acted on.
namespace VoiceRowId {

inline constexpr const char* selected = "voice-selected";
inline constexpr const char* lookAgain = "voice-look-again";
inline constexpr const char* holdToTalk = "voice-hold";
inline constexpr const char* autoStart = "voice-auto-start";
inline constexpr const char* superwhisperMode = "voice-superwhisper-mode";
inline constexpr const char* openAI = "voice-openai";
inline constexpr const char* key = "voice-key";
inline constexpr const char* saveKey = "voice-key-save";
inline constexpr const char* removeKey = "voice-key-remove";
inline constexpr const char* testKey = "voice-key-test";
inline constexpr const char* model = "voice-model";
inline constexpr const char* limit = "voice-limit";

} // namespace VoiceRowId

} // namespace kelvadrome
