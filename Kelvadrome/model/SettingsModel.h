#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/BarHotkey.h"
#include "Kelvadrome/model/DevicesSettings.h"
#include "Kelvadrome/model/RunningApps.h"
#include "Kelvadrome/model/SettingsRows.h"
#include "Kelvadrome/model/VoiceSettings.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

/// What stands behind the settings window: knows what the rows show and does what a press on one asks for, at
/// once and lastingly. Main executor; made with `make`, since its tasks hold it weakly.
class SettingsModel : public std::enable_shared_from_this<SettingsModel> {
public:
    struct Dependencies {
        Executor executor;              // the main one
        BackgroundPool* pool = nullptr; // outlives the model
        std::shared_ptr<AppModel> model;
        std::shared_ptr<Defaults> defaults;
        std::shared_ptr<AutomationPrompter> automation;
        std::shared_ptr<PageSession> session;
        std::shared_ptr<RunningApps> apps;
        SettingsFacts::Place place;
        std::function<std::string()> secretPlace; // blocks; called on the pool
        std::function<void(bool)> showInDock;     // puts the windows into the dock, or takes them out of it
        std::shared_ptr<BarHotkey> barKey = {};   // null without a command bar
        std::shared_ptr<VoiceModel> voice = {};   // null where there is none
        std::shared_ptr<DevicesSettings> devices = {}; // null without phones
    };

    static std::shared_ptr<SettingsModel> make(Dependencies dependencies);

    std::vector<SettingsGroup> pane(SettingsTab tab) const;
    /// Told after something that a pane shows may have changed.
    [[nodiscard]] Subscription observe(std::function<void()> observer) {
        return changes_.observe(std::move(observer));
    }
    /// The window came up, or to the front again: looks anew at what others may have changed meanwhile, and
    /// from here on at what the agents' changes bring, until `lookAway`.
    void lookAgain();
    void lookAway();
    /// The pane came up or went, which some follow more closely than the window.
    void lookAt(SettingsTab tab, bool looking);

    // Presses, by the row's id. An id that isn't known does nothing.
    void toggle(const std::string& id, bool on);
    void choose(const std::string& id, std::size_t index);
    void press(const std::string& id);
    void edit(const std::string& id, const std::string& text);   // after each key
    void submit(const std::string& id);                          // Enter in a field
    void record(const std::string& id, const std::string& keys); // for a key recorder; empty: no global key

    /// A short word on what a press has done.
    std::function<void(std::string)> onNotice;

private:
    explicit SettingsModel(Dependencies dependencies);

    void tellBarKey();
    void modelChanged();
    void pressTerminal(TerminalApp app);
    void pressDevices(const std::string& id);
    static Task<> readTerminals(std::weak_ptr<SettingsModel> weak);
    static Task<> readCrew(std::weak_ptr<SettingsModel> weak);
    static Task<> readSecretPlace(std::weak_ptr<SettingsModel> weak);
    static Task<> request(std::weak_ptr<SettingsModel> weak, TerminalApp app);

    Dependencies parts_;
    SettingsFacts facts_;
    bool looking_ = false;
    std::pair<Connection, std::optional<AgentsStatus>> crewOf_; // for which the crew was read last
    ChangeAnnouncer changes_;
    TaskBag tasks_;
    Subscription watching_;
    Subscription watchingKey_;
    std::optional<VoiceSettings> voice_;
    Subscription watchingVoice_;
    Subscription watchingDevices_;
};

} // namespace kelvadrome
