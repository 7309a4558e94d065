#include "KelvadromeKit/voice/VoiceSettings.h"

namespace kelvadrome {

namespace {

/// The keys on the wire.
namespace Key {

constexpr const char* selected = "selected";
constexpr const char* live = "live";
constexpr const char* barHotkey = "bar_hotkey";
constexpr const char* holdToTalk = "hold_to_talk";
constexpr const char* autoStart = "auto_start";
constexpr const char* openAIEnabled = "openai_enabled";
constexpr const char* openAIModel = "openai_model";
constexpr const char* dailyMinutesCap = "daily_minutes_cap";
constexpr const char* parseAgent = "parse_agent";
constexpr const char* superwhisperMode = "superwhisper_mode";

} // namespace Key

} // namespace

VoiceSettingsWire VoiceSettingsWire::decode(const JSONValue& value) {
    const auto object = value.object();
    VoiceSettingsWire out;
    const auto read = [&]<class T>(const char* key, T& field) { field = object.valueOr(key, field); };
    out.selected = object.optional<std::string>(Key::selected);
    read(Key::live, out.live);
    read(Key::barHotkey, out.barHotkey);
    read(Key::holdToTalk, out.holdToTalk);
    read(Key::autoStart, out.autoStart);
    read(Key::openAIEnabled, out.openAIEnabled);
    read(Key::openAIModel, out.openAIModel);
    read(Key::dailyMinutesCap, out.dailyMinutesCap);
    read(Key::parseAgent, out.parseAgent);
    read(Key::superwhisperMode, out.superwhisperMode);
    out.usedMinutes = object.lenient<double>("used_minutes");
    return out;
}

template <class T, class Field>
VoiceSettingChange VoiceSettingChange::make(const char* key, Field field, T value) {
    VoiceSettingChange change;
    change.key_ = key;
    change.value_ = boost::json::value_from(value);
    change.apply_ = [field, value = std::move(value)](VoiceSettingsWire& to) { to.*field = value; };
    return change;
}

VoiceSettingChange VoiceSettingChange::selected(std::string id) {
    return make(Key::selected, &VoiceSettingsWire::selected, std::move(id));
}

VoiceSettingChange VoiceSettingChange::live(bool on) {
    return make(Key::live, &VoiceSettingsWire::live, on);
}

VoiceSettingChange VoiceSettingChange::barHotkey(std::string label) {
    return make(Key::barHotkey, &VoiceSettingsWire::barHotkey, std::move(label));
}

VoiceSettingChange VoiceSettingChange::holdToTalk(bool on) {
    return make(Key::holdToTalk, &VoiceSettingsWire::holdToTalk, on);
}

VoiceSettingChange VoiceSettingChange::autoStart(bool on) {
    return make(Key::autoStart, &VoiceSettingsWire::autoStart, on);
}

VoiceSettingChange VoiceSettingChange::openAIEnabled(bool on) {
    return make(Key::openAIEnabled, &VoiceSettingsWire::openAIEnabled, on);
}

VoiceSettingChange VoiceSettingChange::openAIModel(std::string model) {
    return make(Key::openAIModel, &VoiceSettingsWire::openAIModel, std::move(model));
}

VoiceSettingChange VoiceSettingChange::dailyMinutesCap(std::int64_t minutes) {
    return make(Key::dailyMinutesCap, &VoiceSettingsWire::dailyMinutesCap, minutes);
}

VoiceSettingChange VoiceSettingChange::parseAgent(std::string agent) {
    return make(Key::parseAgent, &VoiceSettingsWire::parseAgent, std::move(agent));
}

VoiceSettingChange VoiceSettingChange::superwhisperMode(bool on) {
    return make(Key::superwhisperMode, &VoiceSettingsWire::superwhisperMode, on);
}

} // namespace kelvadrome
