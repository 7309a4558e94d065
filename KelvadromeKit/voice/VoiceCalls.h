#pragma once

#include "KelvadromeKit/voice/AppleTranscriber.h"
#include "KelvadromeKit/voice/VoiceScan.h"
#include "KelvadromeKit/voice/VoiceSettings.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <optional>
#include <string>

namespace kelvadrome {

// The daemon's voice routes. Each throws what DaemonClient throws, unless it says otherwise.

/// Absent for a daemon that doesn't offer the route. `force` looks past what the daemon still holds for
/// fresh.
Task<std::optional<VoiceScan>> voiceScan(DaemonClient client, bool force);
/// Absent for a daemon that doesn't offer the route: the defaults hold then.
Task<std::optional<VoiceSettingsWire>> voiceSettings(DaemonClient client);
/// Absent when it was saved, else the words that say that it wasn't. Never throws.
Task<std::optional<std::string>> saveVoiceSetting(DaemonClient client, VoiceSettingChange change);
/// Tells the daemon what this side can do. Never throws.
Task<> voiceEngineStatus(DaemonClient client, bool openAIReady, AppleSpeechState apple);
/// By the daemon's own model, on this machine.
Task<std::string> transcribeOnDevice(DaemonClient client, Clip clip);
/// Tells the daemon that a dictation app's mode was changed from `previous`, or given back. A name that isn't
/// plain isn't sent. Never throws.
Task<> voiceModeSwitched(DaemonClient client, std::string previous, bool restored);

} // namespace kelvadrome
