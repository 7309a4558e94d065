#pragma once

#include "Kelvadrome/model/VoiceModel.h"
#include "Kelvadrome/model/VoiceRows.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

/// What stands behind the settings of voice: what they show, and what a press on one of their rows does. Main
/// executor.
class VoiceSettings {
public:
    VoiceSettings(Executor executor, std::shared_ptr<VoiceModel> voice, SettingsFacts::Place place);

    std::vector<SettingsGroup> pane() const;
    [[nodiscard]] Subscription observe(std::function<void()> observer) {
        return changes_.observe(std::move(observer));
    }
    /// Looks anew at what others may have changed meanwhile.
    void lookAgain();
    /// Nobody looks any more: what was typed and not saved is forgotten.
    void lookAway();

    // Presses, by the row's id. Each says whether it was one of this pane's.
    bool toggle(const std::string& id, bool on);
    bool choose(const std::string& id, std::size_t index);
    bool press(const std::string& id);
    bool edit(const std::string& id, const std::string& text);
    bool submit(const std::string& id);
    /// The keys that were pressed for a recorder, as a label; empty when they make no global key.
    bool record(const std::string& id, const std::string& label);

private:
    VoiceFacts facts() const;
    void voiceChanged();
    void saveKey();
    static Task<> refresh(std::shared_ptr<VoiceModel> voice, bool force);

    std::shared_ptr<VoiceModel> voice_;
    SettingsFacts::Place place_;
    std::string typedKey_;
    bool savingKey_ = false; // what was typed is on its way into the keyring
    bool recording_ = false;
    std::string keyNotice_;
    ChangeAnnouncer changes_;
    TaskBag tasks_;
    Subscription watching_;
};

} // namespace kelvadrome
