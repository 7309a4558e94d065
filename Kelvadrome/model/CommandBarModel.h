#pragma once

#include "Kelvadrome/model/BarVoice.h"
#include "Kelvadrome/model/CommandBarState.h"
#include "KelvadromeKit/capture/FrontWindow.h"
#include "KelvadromeKit/capture/ScreenContext.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Observation.h"
#include "KelvadromeKit/support/TaskBag.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace kelvadrome {

class AppModel;
struct TalkProposal;

/// What the bar's state needs of the place that shows it. Main executor; calls return at once.
class BarPlacement {
public:
    virtual ~BarPlacement() = default;

    /// Takes the bar off the screen and resets it; nothing when it is hidden.
    virtual void hide() = 0;
    /// The same after a window of ours was opened, which keeps the focus.
    virtual void hideForWindow() = 0;
    /// Off the screen while the user drags a region; the bar stays open.
    virtual void stepAside() = 0;
    /// Back in front after that, with the focus; nothing once the bar was hidden.
    virtual void comeBack() = 0;
    /// The owner of the application that the user was in, as FrontApplication has it; absent when it isn't
    /// known.
    virtual std::optional<std::int32_t> previousOwner() const = 0;
};

/// The state behind the command bar and all of its decisions: searches while the user types, turns the words
/// into a card, owns the screenshots of the request that is being written. Knows no window. Main executor;
/// made with `make`, since its tasks hold it weakly.
class CommandBarModel : public std::enable_shared_from_this<CommandBarModel> {
public:
    static constexpr double typingPause = 0.18; // seconds
    static constexpr std::size_t maxHits = 5;

    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        std::weak_ptr<AppModel> app;
        std::shared_ptr<BarVoice> voice;
        /// Made on first need, for a data home. Empty, or gives null, where no screenshot can be taken.
        std::function<std::shared_ptr<ScreenContext>(std::string home)> makeScreenContext = {};
        std::shared_ptr<WindowListing> windows = {}; // may be null
    };

    static std::shared_ptr<CommandBarModel> make(Dependencies dependencies);
    CommandBarModel(const CommandBarModel&) = delete;
    CommandBarModel& operator=(const CommandBarModel&) = delete;
    ~CommandBarModel();

    const CommandBarState& state() const { return state_; }
    BarVoice& voice() const { return *parts_.voice; }
    /// Told at most once in a turn of the executor, after `state` or what `voice` tells has changed.
    [[nodiscard]] Subscription observe(std::function<void()> observer) {
        return changes_.observe(std::move(observer));
    }
    /// Where the bar shows. Until it is set nothing can be hidden.
    void showIn(std::weak_ptr<BarPlacement> place) { place_ = std::move(place); }

    /// What the field holds now, made one line.
    void setText(const std::string& text);
    /// Words that were spoken: they stand behind what was typed.
    void addSpoken(const std::string& text);
    /// Asks the view to give the field the focus.
    void focusField();

    /// Moves the highlight down or up, around through the ask row.
    void move(int delta);
    /// Highlights a row; one that isn't there counts as the ask row.
    void select(std::size_t row);
    /// What Return does: opens the highlighted hit, or asks for a card.
    void submit();
    /// Opens a hit in the main window and hides the bar.
    void open(SearchHit hit);
    /// The same with the card of the proposal.
    void openProposal();
    /// Takes a screenshot: of a region that the user drags, or of the window that the user was in.
    void attach(bool region);
    /// Takes one shot off the request and deletes its file.
    void remove(const CapturedShot& shot);
    /// A press on the microphone.
    void pressMic();
    /// Clears everything; called each time the bar hides.
    void reset();
    /// Cancels what is under way, a drag too; nothing starts from then on.
    void stop() { tasks_.close(); }

    /// Whether this machine takes screenshots.
    bool canAttach() { return screenContext() != nullptr; }
    /// Absent where no screenshot can be taken, or the application is gone.
    std::shared_ptr<ScreenContext> screenContext();

private:
    explicit CommandBarModel(Dependencies dependencies);

    template <class T, class V = T>
    void set(T CommandBarState::*field, V&& value) {
        if (state_.*field == value)
            return;
        state_.*field = std::forward<V>(value);
        changes_.changed();
    }
    /// Without the blanks around it.
    std::string trimmedText() const;

    void searchAnew();
    static Task<> searchLater(std::weak_ptr<CommandBarModel> weak, std::shared_ptr<Clock> clock,
        DaemonClient client, std::string query);
    void found(const std::string& query, std::vector<SearchHit> hits);

    static Task<> ask(std::weak_ptr<CommandBarModel> weak, std::shared_ptr<AppModel> app, std::string text,
        std::int64_t generation);
    void asked(const AppModel& app, const TalkProposal& reply, const std::vector<AttachedShot>& sent);
    void askFailed(const std::exception_ptr& error, const std::vector<AttachedShot>& sent);

    std::optional<CaptureTarget> target(bool region);
    static Task<> capture(std::weak_ptr<CommandBarModel> weak, std::shared_ptr<ScreenContext> context,
        bool region, std::int64_t generation);
    /// Absent when there is no window to take.
    static Task<std::optional<CaptureOutcome>> take(std::weak_ptr<CommandBarModel> weak,
        std::shared_ptr<ScreenContext> context, bool region, std::int64_t generation);
    void captured(std::optional<CaptureOutcome> outcome, bool region);
    /// Deletes the file of a shot, unless it is part of a request that is on its way.
    void discard(const CapturedShot& shot);
    void leaveFor(std::string path);

    Dependencies parts_;
    CommandBarState state_;
    ChangeAnnouncer changes_;
    TaskBag tasks_;
    TaskHandle searchTask_;
    std::optional<std::string> calling_; // the query of the search whose call is out
    std::vector<AttachedShot> sent_;     // what went with the request that is on its way
    CaptureGeneration generation_;
    std::shared_ptr<ScreenContext> screenContext_;
    std::weak_ptr<BarPlacement> place_;
    Subscription voiceChanges_;
};

} // namespace kelvadrome
