#pragma once

#include "Kelvadrome/model/AppState.h"
#include "Kelvadrome/model/BarKeyState.h"
#include "Kelvadrome/model/DevicesState.h"
#include "KelvadromeKit/delivery/DeliverJob.h"
#include "KelvadromeKit/delivery/TerminalApp.h"
#include "KelvadromeKit/support/GreyPicture.h"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kelvadrome {

/// One thing that the settings show. A front end decides how, not what.
struct SettingsRow {
    struct Toggle {
        bool on = false;
        bool operator==(const Toggle&) const = default;
    };
    struct Choice {
        std::vector<std::string> words;
        std::size_t chosen = 0;
        bool operator==(const Choice&) const = default;
    };
    struct Press {
        std::string words; // on the button
        bool operator==(const Press&) const = default;
    };
    /// Some side by side, for what is decided one way or another.
    struct Presses {
        struct One {
            std::string id; // pressed by it, not by the row's
            std::string words;
            bool enabled = true;
            bool chief = false; // what the row is for
            bool operator==(const One&) const = default;
        };
        std::vector<One> buttons;
        bool operator==(const Presses&) const = default;
    };
    /// A line that the user types. The row's title is its label.
    struct Field {
        std::string hint; // where nothing has been typed yet
        std::string text;
        bool secret = false;     // not to be read over a shoulder
        bool takesFocus = false; // when it comes to show, for it is what the user waits for
        bool operator==(const Field&) const = default;
    };
    /// Drawn pixel for pixel, without smoothing.
    struct Picture {
        std::string description; // for who can't see it
        std::shared_ptr<const GreyPicture> shown;
        bool operator==(const Picture&) const = default;
    };
    /// Takes the next keys that are pressed together, once it was pressed itself.
    struct KeyRecorder {
        bool recording = false;
        bool operator==(const KeyRecorder&) const = default;
    };
    using Control = std::variant<std::monostate, Toggle, Choice, Press, Presses, Field, Picture, KeyRecorder>;

    std::string id; // the same for as long as it is the same thing; unique in its pane
    std::string title;
    std::string detail = {};
    std::string value = {}; // what is so, at the row's end
    Control control = {};
    bool enabled = true;                  // of the control
    std::string symbol = {};              // the name of an icon before the title
    std::vector<SettingsRow> folded = {}; // rows below it, shown on demand

    bool operator==(const SettingsRow&) const = default;
};

struct SettingsGroup {
    std::string id;
    std::string title;
    std::string detail;
    std::vector<SettingsRow> rows;

    bool operator==(const SettingsGroup&) const = default;
};

enum class SettingsTab { general, agents, voice, iphone, autopilot, privacy, about };

inline constexpr std::array allSettingsTabs = {SettingsTab::general, SettingsTab::agents, SettingsTab::voice,
    SettingsTab::iphone, SettingsTab::autopilot, SettingsTab::privacy, SettingsTab::about};

std::string_view rawValue(SettingsTab tab); // as the key KDOpenSettings words it
std::optional<SettingsTab> settingsTabFromRawValue(std::string_view text);
std::string_view title(SettingsTab tab);

/// What the settings know beside the model's state.
struct SettingsFacts {
    /// This machine and this build; it stays as it is.
    struct Place {
        std::string dataHome = {};
        std::string socket = {};
        std::string settingsFile = {};
        std::string daemonLog = {}; // of a daemon that the login item runs
        std::string executable = {};
        std::string version = {};
        std::string allowLoginItem = {}; // the command that lifts a mask
        std::optional<std::string> tmux = {};
        bool ownHome = false;          // not the standard one
        bool windowsObey = true;       // they stay where and as they are put: not so on Wayland
        bool mayNotify = true;         // in this run
        bool loginItem = true;         // this run manages it
        bool scriptsTerminals = false; // there are terminals that the system lets one application script
    };
    struct Terminal {
        AutomationStatus status = AutomationStatus::unknown;
        bool running = false;
        bool asking = false;
        std::optional<std::string> note = {};
    };

    Place place = {};
    bool showInDock = true;
    bool notifyStops = true;
    std::map<TerminalApp, Terminal> terminals = {};
    std::optional<BarKeyState> barKey = {}; // absent without a command bar, or where the pane of voice has it
    DevicesState devices = {};
    std::optional<CrewLabelList> crew = {};      // absent until the daemon has told
    std::optional<std::string> secretPlace = {}; // where the page's key is kept; absent until it is known
};

/// The groups of a pane, from top to bottom; that of voice has a function of its own (VoiceRows.h). Which
/// groups there are doesn't depend on the state; what isn't known yet says so.
std::vector<SettingsGroup> settingsPane(SettingsTab tab, const AppState& state, const SettingsFacts& facts);

/// Ids of the rows that can be acted on. A terminal's is "terminal-" and its raw value.
namespace SettingsId {

inline constexpr const char* appearance = "appearance";
inline constexpr const char* interfaceMode = "interface-mode";
inline constexpr const char* agentStrip = "agent-strip";
inline constexpr const char* showInDock = "show-in-dock";
inline constexpr const char* loginItem = "login-item";
inline constexpr const char* allowLoginItem = "allow-login-item";
inline constexpr const char* notifyStops = "notify-stops";
inline constexpr const char* editRules = "edit-rules";
inline constexpr const char* revealHome = "reveal-home";
inline constexpr const char* barKey = "bar-key";
inline constexpr const char* barCommand = "bar-command";
inline constexpr const char* relay = "relay";
inline constexpr const char* pairPhone = "pair-phone";
inline constexpr const char* copyPairing = "copy-pairing";
inline constexpr const char* phoneCode = "phone-code";
inline constexpr const char* allowPhone = "allow-phone";
inline constexpr const char* declinePhone = "decline-phone";
std::string unpair(const std::string& deviceId);
std::optional<std::string> unpaired(const std::string& id); // the device of such an id
std::string terminal(TerminalApp app);

} // namespace SettingsId

/// The words of KDAppearance, in the order in which the settings offer them.
inline constexpr std::array<std::string_view, 3> appearanceWords = {"system", "light", "dark"};

} // namespace kelvadrome
