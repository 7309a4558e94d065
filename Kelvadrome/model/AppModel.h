#pragma once

#include "Kelvadrome/model/AppState.h"
#include "Kelvadrome/model/Collaborators.h"
#include "Kelvadrome/model/Notifying.h"
#include "Kelvadrome/model/Screen.h"
#include "Kelvadrome/model/WebController.h"
#include "KelvadromeKit/bar/TalkProposal.h"
#include "KelvadromeKit/daemon/BackgroundService.h"
#include "KelvadromeKit/daemon/DaemonEnvironment.h"
#include "KelvadromeKit/daemon/DaemonSupervisor.h"
#include "KelvadromeKit/daemon/DebugFlags.h"
#include "KelvadromeKit/delivery/AutomationPrompter.h"
#include "KelvadromeKit/page/PageSession.h"
#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Defaults.h"
#include "KelvadromeKit/support/Observation.h"
#include "KelvadromeKit/support/TaskBag.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelvadrome {

/// The one observable object of the application: every view reads its state, every action of the user goes
/// through it. Lives on the main executor and is called there only. Made with `make`, since its tasks hold it
/// weakly.
class AppModel : public std::enable_shared_from_this<AppModel> {
public:
    struct Dependencies {
        Executor executor;              // the main executor
        BackgroundPool* pool = nullptr; // outlives the model
        std::shared_ptr<Clock> clock;
        std::shared_ptr<Defaults> defaults;
        DebugFlags flags;
        DaemonEnvironment env;
        std::shared_ptr<DaemonSupervisor> supervisor;
        DaemonClient client;
        std::shared_ptr<PageSession> session;
        std::optional<BackgroundService> background; // absent when this run may not manage the login item
        std::shared_ptr<WebController> web;
        std::shared_ptr<Screen> screen;
        std::shared_ptr<Notifying> notifier;
        std::shared_ptr<AutomationPrompter> automation;
        std::shared_ptr<RelayConnecting> relay;      // may be null
        std::shared_ptr<VoiceControlling> voice;     // may be null
        std::function<void()> startDelivery;         // begins the delivery loops; may be empty
        std::function<Task<>()> finishDelivery = {}; // ends them after the job under way; may be empty
    };

    static std::shared_ptr<AppModel> make(Dependencies dependencies);

    const AppState& state() const { return state_; }
    /// Told at most once in a turn of the executor, after something in `state` has changed.
    [[nodiscard]] Subscription observe(std::function<void()> observer) {
        return changes_.observe(std::move(observer));
    }
    const DebugFlags& flags() const { return parts_.flags; }
    const DaemonEnvironment& env() const { return parts_.env; }
    const DaemonClient& client() const { return parts_.client; }

    // Life. `start` is called once; later calls do nothing. After `stop` nothing of the model runs on: a
    // child daemon is ended, an attached or login-item daemon keeps running.
    void start();
    Task<> stop();

    /// Runs a task of the main executor for as long as the model runs.
    void launch(std::string name, Task<> body) { tasks_.launch(std::move(name), std::move(body)); }

    // The daemon. None of these throws; a failure shows in `connection`.
    Task<> connect();
    Task<> refresh();
    /// Refreshes in 0.2 s; calls within that time are one.
    void scheduleRefresh();
    /// Another try after `connection` failed, or while the login item's daemon doesn't answer: where its unit
    /// is down, a child is started.
    void retry();

    // Windows and pages.
    void openMainWindow();
    /// Opens the window and routes the page: a path, with "?card=<id>" for a card to go to, or the results of
    /// "/search?q=<words>".
    void openMain(std::string path);
    void open(NavSection section, std::optional<Card> card);
    /// Opens the inbox on the first card that needs the user: a press on a notification or the agent strip.
    void openFirstNeedingYou();
    /// What a second start, or a press on the icon, asks for: the setup window while setup is under way, else
    /// the main one. Where setup was put off and nothing but a window leads in, it is the main one too.
    void reopen();
    void handleOpenURL(std::string url);
    void openOnboarding(bool firstRun);
    /// The user has closed the setup window before its end.
    void onboardingPutOff();
    void onboardingFinished();
    void applyAppearance();
    /// "system", "light" or "dark", for windows and page, from now on and in later runs.
    void setAppearance(std::string appearance);
    /// Keeps the shell's section in step with the page.
    void followPageRoute(std::string route);
    void setScope(ScopeFilter scope);
    void setSearchText(std::string text);
    /// Shows the results for `searchText`.
    void search();
    void setInspectorShown(bool shown);
    void setInterfaceMode(InterfaceMode mode, InterfaceModeSource source);
    void setAgentStrip(bool on);
    /// Remembered, as the strip is.
    void setNativeInbox(bool on);
    Task<> revealTopicFolder(std::string topic);
    /// Selects a file that the page named in the file manager, when the policy allows it and it exists.
    void reveal(std::string path);
    void setNotice(std::optional<std::string> notice);

    /// Opens the page on a card that only the page can answer, also where the native list shows otherwise.
    void review(Card card);
    /// Back to the native list.
    void endReview();

    // The panel. A card of high risk, or one that no answer can be typed for, is never answered from it: the
    // page opens on the card instead.
    void answer(Card card, std::string label);
    void acceptDefaults(Card card);
    /// Answers a batch, by question id; a question without an answer takes its default.
    void answerBatch(Card card, std::map<std::string, std::string> answers);
    void undo(Card card);
    /// Hides the card's row for 30 minutes; the daemon isn't told.
    void snooze(Card card);
    /// Brings a snoozed card back at once.
    void wake(const Card& card);
    /// Ends the card without an answer; its agent is told nothing.
    void dismiss(Card card);

    // An answer to a card of high risk without the page: the daemon says how it would go out (`secondLook`),
    // and only what the user then confirms is sent.
    void review(Card card, std::string answer);
    void confirmReview();
    void giveUpReview();

    // The agents.
    /// Goes to the first card of the agent that needs the user; without one brings its terminal to the front.
    void openAgent(const std::string& id);
    /// Brings the agent's terminal to the front, whatever waits.
    void showTerminal(const std::string& id);
    /// The native list has gone to `cardToShow`.
    void cardIsShown() { set(&AppState::cardToShow, std::nullopt); }

    // The login item.
    void setBackground(bool on);
    /// Reads the login item's state again, which may have been changed elsewhere.
    void refreshBackground();

    // The terminals that answers are typed into.
    /// Asks for consent to script a terminal, then tells the page how it stands.
    Task<> allowTerminal(TerminalApp app);
    /// Tells the page which terminals may be scripted.
    Task<> sendTerminalAccess();
    Task<> voiceFromPage(std::string action);

    /// Has the daemon make a card of a request's words. `shots` are ids of screenshots in the data home.
    /// Throws as PageSession::post does.
    Task<TalkProposal> proposeTalk(std::string text, std::vector<std::string> shots);

    Screen& screen() { return *parts_.screen; }
    WebController& web() { return *parts_.web; }

private:
    static constexpr double healthTimeout = 3.0; // seconds

    explicit AppModel(Dependencies dependencies);

    /// Equal values change nothing and tell nobody.
    template <class T, class V>
    void set(T AppState::*field, V&& value) {
        if (state_.*field == value)
            return;
        state_.*field = std::forward<V>(value);
        changes_.changed();
    }
    static std::string describe(const std::exception_ptr& error);

    // The loops and the start, AppModel.cpp.
    static Task<> live(std::weak_ptr<AppModel> weak);
    static Task<> streamLoop(std::weak_ptr<AppModel> weak);
    static Task<> pollLoop(std::weak_ptr<AppModel> weak, std::shared_ptr<Clock> clock);
    Task<> bringUp();
    Task<> prepareBackground();
    Task<bool> startSupervisor();
    Task<> retryNow();
    Task<> decideFirstRun();
    Task<> poll();
    Task<> pollHealthy(Health health);
    Task<> pollFailed();
    Task<> changeBackground(bool on);
    Task<> readBackground();
    Task<> handOver();
    Task<> relieveLoginItem();

    // Refreshing, AppModelRefresh.cpp.
    struct Reads;
    Task<> refreshLater();
    void apply(Reads reads);
    Task<> renewPage();
    void notifyNewStops();
    Task<> notifyOf(std::set<std::string> stops);
    void withdrawEndedStops();

    // The panel, AppModelActions.cpp.
    void hold(Card card, std::string label, Task<PageSession::ReceiptOut> call, double window);
    Task<> dismissNow(Card card);
    Task<> snoozeNow(std::string id);
    Task<> wakeNow(std::string id);
    void forgetToldSnoozes();
    /// The open card of this id, if it is snoozed.
    const Card* snoozedNow(const std::string& id) const;
    void wakeIfSnoozed(const std::string& id);
    Task<> reviewNow(Card card, std::string answer);
    Task<> focusTerminal(AgentsStatus::Session session);
    Task<> sendHeld(std::string id, std::uint64_t press, Task<PageSession::ReceiptOut> call);
    void know(const std::string& id, std::uint64_t press, PressedAnswer::Known known, std::string reason);
    Task<> lookAgain(std::string id, std::uint64_t press);
    void settlePressed(double began);
    Task<> sayEnd(PressedAnswer answer);
    Task<> finishHold(std::string id);
    static std::string outcomeOf(const std::exception_ptr& error);
    void sendUndo(std::string id);
    Task<> undoNow(std::string id, Task<PageSession::ReceiptOut> call);
    void removeHold(const std::string& id);

    // Windows and pages, AppModelPages.cpp.
    void setSection(NavSection section);
    void openCard(Card card);
    Task<> presentOnboarding(bool firstRun);
    static Task<> scopeAfter(std::weak_ptr<AppModel> weak, double pause);
    void showAgentStrip();

    Dependencies parts_;
    AppState state_;
    ChangeAnnouncer changes_;
    TaskBag tasks_;
    TaskHandle liveTask_; // the start-up sequence, then the event stream
    TaskHandle pollTask_;
    bool firstRunDecided_ = false;
    bool refreshPending_ = false;
    std::int64_t backgroundChanges_ = 0; // begun or ended
    std::int64_t refreshGeneration_ = 0;
    std::uint64_t presses_ = 0;                           // answers pressed so far
    std::optional<std::int64_t> lastPid_;                 // of the daemon that this model is connected to
    std::set<std::string> notified_;                      // ids of the cards that a notification was due for
    std::map<std::string, std::set<std::string>> posted_; // the cards that a notification stands for
};

} // namespace kelvadrome
