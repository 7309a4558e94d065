#pragma once

#include "KelvadromeKit/support/JSON.h"

#include <boost/json/value.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kelvadrome {

/// The settings of voice, which the daemon keeps.
struct VoiceSettingsWire {
    std::optional<std::string> selected;
    bool live = false;
    std::string barHotkey = "Control Option B";
    bool holdToTalk = false;
    bool autoStart = false;
    bool openAIEnabled = true;
    std::string openAIModel = "gpt-transcribe";
    std::int64_t dailyMinutesCap = 30;
    std::string parseAgent = "claude"; // kept for the daemon
    bool superwhisperMode = false;
    std::optional<double> usedMinutes; // of this day; told by daemons that know it, never saved

    static VoiceSettingsWire decode(const JSONValue& value);
    bool operator==(const VoiceSettingsWire&) const = default;
};

/// One changed setting, as it goes to the daemon. Each maker names the key of its field.
class VoiceSettingChange {
public:
    static VoiceSettingChange selected(std::string id);
    static VoiceSettingChange live(bool on);
    static VoiceSettingChange barHotkey(std::string label);
    static VoiceSettingChange holdToTalk(bool on);
    static VoiceSettingChange autoStart(bool on);
    static VoiceSettingChange openAIEnabled(bool on);
    static VoiceSettingChange openAIModel(std::string model);
    static VoiceSettingChange dailyMinutesCap(std::int64_t minutes);
    static VoiceSettingChange parseAgent(std::string agent);
    static VoiceSettingChange superwhisperMode(bool on);

    void applyTo(VoiceSettingsWire& settings) const { apply_(settings); }
    /// "hold_to_talk" and its like.
    const std::string& key() const { return key_; }
    bool isSelection() const { return key_ == "selected"; }
    const boost::json::value& value() const { return value_; }

private:
    template <class T, class Field>
    static VoiceSettingChange make(const char* key, Field field, T value);

    std::string key_;
    boost::json::value value_;
    std::function<void(VoiceSettingsWire&)> apply_;
};

} // namespace kelvadrome
