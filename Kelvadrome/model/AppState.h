#pragma once

#include "Kelvadrome/model/PanelHold.h"
#include "Kelvadrome/model/PressedAnswer.h"
#include "Kelvadrome/model/SecondLook.h"
#include "KelvadromeKit/attention/InterfaceMode.h"
#include "KelvadromeKit/attention/ScopeFilter.h"
#include "KelvadromeKit/daemon/BackgroundService.h"
#include "KelvadromeKit/daemon/DaemonSupervisor.h"
#include "KelvadromeKit/daemon/NavSection.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/wire/AgentsStatus.h"
#include "KelvadromeKit/wire/Card.h"
#include "KelvadromeKit/wire/Records.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// What the main window shows of the daemon.
struct Connection {
    enum class State {
        starting, // not up yet, or gone and being brought back
        ready,    // the page session exists; the page is loaded or loading
        failed,   // supervision gave up, or the page session couldn't be opened
    };

    State state = State::starting;
    std::string message; // for the user; of `failed` only

    static Connection starting() { return {}; }
    static Connection ready() { return {State::ready, {}}; }
    static Connection failed(std::string message) { return {State::failed, std::move(message)}; }

    bool operator==(const Connection&) const = default;
};

/// All that views show, as one value. AppModel alone writes it.
struct AppState {
    Connection connection;
    std::optional<DaemonSupervisor::Status> supervisorStatus; // the last known copy
    std::optional<Health> health;
    std::vector<Card> cards;                // the open cards, in the daemon's order
    std::map<std::string, BoardRow> topics; // by topic id
    std::int64_t topicCount = 0;            // rows of the board at the last refresh
    std::vector<Receipt> receipts;          // the latest, newest first
    std::int64_t receiptsToday = 0;
    std::optional<InboxCounts> counts;
    std::optional<AgentsStatus> agents;
    std::optional<WallTime> lastRefresh; // the end of the last refresh that wasn't stale
    NavSection section = NavSection::inbox;
    ScopeFilter scope = ScopeFilter::all;
    std::string searchText;
    bool inspectorShown = false;
    std::string appearance = "system"; // as KDAppearance words it: "dark", "light", or the system's
    InterfaceMode interfaceMode = InterfaceMode::simple;
    bool agentStripShown = false;
    bool nativeInbox = false;               // the inbox as widgets of the window, in the page's place
    std::optional<std::string> reviewed;    // the card that the page shows in that list's place
    std::optional<std::string> cardToShow;  // the card that the native list is to go to next
    std::optional<SecondLook> secondLook;   // an answer of high risk that waits to be confirmed
    std::map<std::string, PanelHold> holds; // by card id
    PressedAnswers pressed;                 // what is known of each answer that has no known end yet
    std::map<std::string, WallTime>
        later; // by card id: snoozed here, as long as the daemon doesn't tell of it
    std::optional<std::string> panelError;        // shown at the top of the panel
    std::optional<std::string> credentialsExpiry; // in spite of its name "port <n>", the page session's port
    std::optional<bool> notificationsAllowed;
    std::optional<std::string> notice;
    std::optional<BackgroundService::State> backgroundState;
    std::optional<bool> backgroundChanging; // what the system is being told that the user wants
    bool onboardingActive = false;
};

/// The daemon is the login item's to run.
bool loginItemIsEnabled(const AppState& state);
/// The login item is to bring the daemon, and it doesn't answer although it had its time.
bool loginItemIsSilent(const AppState& state);
/// How many cards need the user: the daemon's count, or our own without it.
std::int64_t needsYouCount(const AppState& state);
/// The daemon's sessions, or rows made from the cards when it reports none.
std::vector<AgentsStatus::Session> agentRows(const AppState& state);
std::int64_t agentsWorking(const AppState& state);
/// The topic's title; absent for an absent or unknown id.
std::optional<std::string> topicTitle(const AppState& state, const std::optional<std::string>& id);
/// The lock on the Edge browser, the first whose resource names it.
std::optional<AgentsStatus::Lock> edgeLock(const AppState& state);
/// Whether the Edge browser is held for this session.
bool holdsEdge(const AppState& state, const AgentsStatus::Session& session);
inline constexpr double snoozeTime = 1800; // seconds
/// Until when the card is snoozed, by the daemon or here. A time further ahead than can be asked for counts
/// as none: the clock was set back, and the card is not to wait for that.
std::optional<WallTime> snoozedUntil(const AppState& state, const Card& card, WallTime now);
/// Whether the card is out of sight until later.
bool isSnoozed(const AppState& state, const Card& card, WallTime now);
/// How many of the open cards that need the user are.
std::int64_t snoozedCount(const AppState& state, WallTime now);
/// What starts `kd` at a shell of this machine.
std::string kdCommand(const AppState& state);
/// The panel's rows, at most 3: what needs the user and isn't snoozed, and every row under way.
std::vector<Card> panelCards(const AppState& state, WallTime now);

} // namespace kelvadrome
