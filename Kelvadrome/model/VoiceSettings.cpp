#include "Kelvadrome/model/VoiceSettings.h"

#include "KelvadromeKit/voice/OpenAITranscriber.h"

namespace kelvadrome {

VoiceSettings::VoiceSettings(Executor executor, std::shared_ptr<VoiceModel> voice, SettingsFacts::Place place)
    : voice_(std::move(voice)), place_(std::move(place)), changes_(executor), tasks_(executor) {
    watching_ = voice_->observe([this] { voiceChanged(); });
}

/// What was typed stays until it is known to be saved.
void VoiceSettings::voiceChanged() {
    const auto& key = voice_->state().key;
    if (savingKey_ && key.message) {
        savingKey_ = false;
        if (key.saved && *key.message == SecretField::savedMessage)
            typedKey_.clear();
    }
    changes_.changed();
}

VoiceFacts VoiceSettings::facts() const {
    return {.voice = voice_->state(),
        .route = voice_->route(),
        .routeLine = voice_->routeLine(),
        .selectedId = voice_->selectedId(),
        .key = voice_->hotkey(),
        .typedKey = typedKey_,
        .recordingKey = recording_,
        .keyNotice = keyNotice_};
}

std::vector<SettingsGroup> VoiceSettings::pane() const {
    return voicePane(facts(), place_);
}

Task<> VoiceSettings::refresh(std::shared_ptr<VoiceModel> voice, bool force) {
    co_await voice->refresh(force);
}

void VoiceSettings::lookAgain() {
    tasks_.launch("voice", refresh(voice_, false));
}

void VoiceSettings::lookAway() {
    typedKey_.clear();
    savingKey_ = false;
    recording_ = false;
    keyNotice_.clear();
    changes_.changed();
}

bool VoiceSettings::toggle(const std::string& id, bool on) {
    if (id == VoiceRowId::holdToTalk)
        voice_->save(VoiceSettingChange::holdToTalk(on));
    else if (id == VoiceRowId::autoStart)
        voice_->save(VoiceSettingChange::autoStart(on));
    else if (id == VoiceRowId::superwhisperMode)
        voice_->save(VoiceSettingChange::superwhisperMode(on));
    else if (id == VoiceRowId::openAI)
        voice_->save(VoiceSettingChange::openAIEnabled(on));
    else
        return false;
    return true;
}

bool VoiceSettings::choose(const std::string& id, std::size_t index) {
    if (id == VoiceRowId::selected) {
        const auto choices = voiceChoices(facts());
        if (index < choices.size())
            voice_->save(VoiceSettingChange::selected(choices[index].id));
    } else if (id == VoiceRowId::model) {
        if (index < OpenAITranscriber::models.size())
            voice_->save(VoiceSettingChange::openAIModel(std::string(OpenAITranscriber::models.at(index))));
    } else if (id == VoiceRowId::limit) {
        const auto limits = voiceLimits(voice_->state().settings.dailyMinutesCap);
        if (index < limits.size())
            voice_->save(VoiceSettingChange::dailyMinutesCap(limits[index]));
    } else {
        return false;
    }
    return true;
}

bool VoiceSettings::press(const std::string& id) {
    if (id == SettingsId::barKey) {
        recording_ = !recording_;
        keyNotice_.clear();
        changes_.changed();
    } else if (id == VoiceRowId::saveKey) {
        saveKey();
    } else if (id == VoiceRowId::removeKey) {
        voice_->removeKey();
    } else if (id == VoiceRowId::testKey) {
        voice_->testKey();
    } else if (id == VoiceRowId::lookAgain) {
        tasks_.launch("voice", refresh(voice_, true));
    } else {
        return false;
    }
    return true;
}

bool VoiceSettings::edit(const std::string& id, const std::string& text) {
    if (id != VoiceRowId::key)
        return false;
    if (text != typedKey_)
        savingKey_ = false; // what is on its way is another one
    typedKey_ = text;
    changes_.changed();
    return true;
}

bool VoiceSettings::submit(const std::string& id) {
    if (id != VoiceRowId::key)
        return false;
    saveKey();
    return true;
}

void VoiceSettings::saveKey() {
    if (typedKey_.empty() || savingKey_)
        return;
    savingKey_ = true;
    voice_->saveKey(typedKey_);
}

bool VoiceSettings::record(const std::string& id, const std::string& label) {
    if (id != SettingsId::barKey)
        return false;
    if (label.empty()) {
        keyNotice_ =
            "A key for everywhere needs Control, Alt or Super, and a letter, a digit or a named key.";
    } else {
        keyNotice_.clear();
        voice_->save(VoiceSettingChange::barHotkey(label));
    }
    recording_ = false;
    changes_.changed();
    return true;
}

} // namespace kelvadrome
