#include "Kelvadrome/model/CommandBarModel.h"

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/CommandBarRows.h"
#include "KelvadromeKit/bar/BarText.h"
#include "KelvadromeKit/bar/TalkProposal.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr std::size_t shortestQuery = 2; // characters

bool holds(const std::vector<AttachedShot>& shots, const std::string& id) {
    return std::ranges::any_of(shots, [&](const AttachedShot& one) { return one.shot.id == id; });
}

std::string wordsFor(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& refused) {
        if (refused.code() == "not_implemented")
            return "Requests from the bar arrive in the next build. Your words stay here.";
    } catch (...) { // whatever it was, the user can only try again
    }
    return "kelvadrome could not take the request. Your words stay here.";
}

/// What the bar says of a capture; absent when it says nothing.
std::optional<std::string> wordsFor(CaptureOutcome::Kind kind) {
    switch (kind) {
    case CaptureOutcome::Kind::needsPermission:
        return "Allow Screen Recording for kelvadrome in System Settings, Privacy and Security. Then press "
               "again.";
    case CaptureOutcome::Kind::limit:
        return "3 screenshots at most.";
    case CaptureOutcome::Kind::failed:
        return "The screenshot did not work. Try again.";
    case CaptureOutcome::Kind::captured:
    case CaptureOutcome::Kind::cancelled:
        break;
    }
    return std::nullopt;
}

} // namespace

std::shared_ptr<CommandBarModel> CommandBarModel::make(Dependencies dependencies) {
    struct Model final : CommandBarModel {
        explicit Model(Dependencies d) : CommandBarModel(std::move(d)) {}
    };
    return std::make_shared<Model>(std::move(dependencies));
}

CommandBarModel::CommandBarModel(Dependencies dependencies)
    : parts_(std::move(dependencies)), changes_(parts_.executor), tasks_(parts_.executor) {
    voiceChanges_ = parts_.voice->observe([this] { changes_.changed(); });
}

CommandBarModel::~CommandBarModel() {
    stop();
}

std::string CommandBarModel::trimmedText() const {
    return std::string(Text::trimBlanks(state_.text));
}

void CommandBarModel::setText(const std::string& text) {
    auto line = BarText::sanitize(text);
    if (line != text)
        changes_.changed(); // the field holds something else
    if (line == state_.text)
        return;
    set(&CommandBarState::text, std::move(line));
    set(&CommandBarState::proposal, std::nullopt);
    set(&CommandBarState::error, std::nullopt);
    searchAnew();
    parts_.voice->textChanged();
}

void CommandBarModel::addSpoken(const std::string& text) {
    auto line = BarText::sanitize(text);
    setText(state_.text.empty() ? line : state_.text + " " + line);
    focusField();
}

void CommandBarModel::focusField() {
    set(&CommandBarState::focusToken, state_.focusToken + 1);
}

// Searching

void CommandBarModel::searchAnew() {
    auto query = trimmedText();
    if (calling_ == query)
        return; // the reply that is on its way is for these words too
    searchTask_.cancel();
    calling_.reset();
    const auto app = parts_.app.lock();
    if (!app || Text::characterCount(query) < shortestQuery)
        return found(query, {});
    searchTask_ = tasks_.launch(
        "bar search", searchLater(weak_from_this(), parts_.clock, app->client(), std::move(query)));
}

Task<> CommandBarModel::searchLater(std::weak_ptr<CommandBarModel> weak, std::shared_ptr<Clock> clock,
    DaemonClient client, std::string query) {
    co_await clock->sleep(typingPause);
    bool replaced = co_await taskCancelled();
    auto self = weak.lock();
    if (replaced || !self)
        co_return;
    self->calling_ = query;
    self.reset();
    auto call = kelvadrome::search(client, query, maxHits);
    auto hits = co_await attempt(std::move(call));
    replaced = co_await taskCancelled();
    self = weak.lock();
    if (replaced || !self)
        co_return;
    self->calling_.reset();
    // A search that failed says nothing: the words can still become a request.
    self->found(query, hits ? hits.take() : std::vector<SearchHit>());
}

void CommandBarModel::found(const std::string& query, std::vector<SearchHit> hits) {
    if (query != trimmedText())
        return;
    set(&CommandBarState::hits, std::move(hits));
    set(&CommandBarState::selection, std::min(state_.selection, state_.hits.size()));
}

// Choosing

void CommandBarModel::move(int delta) {
    const auto rows = static_cast<std::int64_t>(state_.hits.size()) + 1;
    const auto to = (static_cast<std::int64_t>(state_.selection) + delta) % rows;
    select(static_cast<std::size_t>((to + rows) % rows));
}

void CommandBarModel::select(std::size_t row) {
    set(&CommandBarState::selection, row <= state_.hits.size() ? row : 0);
}

void CommandBarModel::open(SearchHit hit) {
    leaveFor(CommandBar::pathOf(hit, trimmedText()));
}

void CommandBarModel::openProposal() {
    if (state_.proposal)
        leaveFor("/?card=" + state_.proposal->cardId);
}

void CommandBarModel::leaveFor(std::string path) {
    const auto app = parts_.app.lock();
    if (!app)
        return;
    app->openMain(std::move(path));
    if (const auto place = place_.lock())
        place->hideForWindow();
}

// Asking

void CommandBarModel::submit() {
    if (state_.selection >= 1 && state_.selection <= state_.hits.size())
        return open(state_.hits[state_.selection - 1]);
    auto text = trimmedText();
    auto app = parts_.app.lock();
    if (text.empty() || state_.proposing || !app)
        return;
    set(&CommandBarState::proposing, true);
    set(&CommandBarState::error, std::nullopt);
    sent_ = state_.shots;
    tasks_.launch("bar request", ask(weak_from_this(), std::move(app), std::move(text), generation_.current));
}

Task<> CommandBarModel::ask(std::weak_ptr<CommandBarModel> weak, std::shared_ptr<AppModel> app,
    std::string text, std::int64_t generation) {
    std::vector<std::string> ids;
    if (const auto self = weak.lock()) {
        for (const auto& one : self->sent_)
            ids.push_back(one.shot.id);
    }
    auto call = app->proposeTalk(text, std::move(ids));
    auto reply = co_await attempt(std::move(call));
    const auto self = weak.lock();
    if (!self)
        co_return;
    const auto sent = std::exchange(self->sent_, {});
    if (reply) {
        self->asked(*app, *reply, sent);
    } else {
        // Words of a bar that was hidden meanwhile come back, or the message would not be true.
        if (!self->generation_.isCurrent(generation) && self->state_.text.empty())
            self->set(&CommandBarState::text, std::move(text));
        self->askFailed(reply.error(), sent);
    }
    self->set(&CommandBarState::proposing, false);
}

void CommandBarModel::asked(
    const AppModel& app, const TalkProposal& reply, const std::vector<AttachedShot>& sent) {
    // The files stay, since daemon and agent read them.
    auto shots = state_.shots;
    std::erase_if(shots, [&](const AttachedShot& one) { return holds(sent, one.shot.id); });
    set(&CommandBarState::shots, std::move(shots));
    const auto topicTitle = [&](const std::string& id) { return kelvadrome::topicTitle(app.state(), id); };
    CommandBarState::Proposal proposal{reply.cardId, reply.summary(topicTitle), reply.clarify(), sent.size()};
    set(&CommandBarState::proposal, std::move(proposal));
}

void CommandBarModel::askFailed(const std::exception_ptr& error, const std::vector<AttachedShot>& sent) {
    for (const auto& one : sent) {
        if (!holds(state_.shots, one.shot.id))
            discard(one.shot);
    }
    set(&CommandBarState::error, wordsFor(error));
}

// Screenshots

std::shared_ptr<ScreenContext> CommandBarModel::screenContext() {
    const auto app = parts_.app.lock();
    if (!screenContext_ && app && parts_.makeScreenContext)
        screenContext_ = parts_.makeScreenContext(app->env().home);
    return screenContext_;
}

void CommandBarModel::attach(bool region) {
    if (state_.capturing || tasks_.closed() || parts_.app.expired())
        return;
    auto context = screenContext();
    if (!context)
        return;
    set(&CommandBarState::capturing, true);
    set(&CommandBarState::screenLine, std::nullopt);
    tasks_.launch("screenshot", capture(weak_from_this(), std::move(context), region, generation_.current));
}

std::optional<CaptureTarget> CommandBarModel::target(bool region) {
    const auto place = place_.lock();
    if (region) {
        if (place)
            place->stepAside();
        return CaptureTarget::region();
    }
    const auto owner = place ? place->previousOwner() : std::nullopt;
    const auto window = parts_.windows ? parts_.windows->frontWindow(owner) : std::nullopt;
    return window ? std::optional(CaptureTarget::window(*window)) : std::nullopt;
}

Task<> CommandBarModel::capture(std::weak_ptr<CommandBarModel> weak, std::shared_ptr<ScreenContext> context,
    bool region, std::int64_t generation) {
    auto taking = take(weak, context, region, generation);
    auto taken = co_await attempt(std::move(taking));
    const bool ended = co_await taskCancelled();
    auto outcome = std::optional(CaptureOutcome{CaptureOutcome::Kind::failed, {}});
    if (taken)
        outcome = taken.take();
    const auto self = weak.lock();
    if (self && !ended && self->generation_.isCurrent(generation)) {
        self->captured(std::move(outcome), region);
    } else if (outcome && outcome->kind == CaptureOutcome::Kind::captured) {
        context->discard(outcome->shot); // of a request that is over
    }
    if (!self)
        co_return;
    self->set(&CommandBarState::capturing, false);
    self->focusField();
}

/// A bar that was hidden before this has its turn starts no drag.
Task<std::optional<CaptureOutcome>> CommandBarModel::take(std::weak_ptr<CommandBarModel> weak,
    std::shared_ptr<ScreenContext> context, bool region, std::int64_t generation) {
    auto self = weak.lock();
    if (!self || !self->generation_.isCurrent(generation))
        co_return CaptureOutcome{CaptureOutcome::Kind::cancelled, {}};
    const auto target = self->target(region);
    if (!target)
        co_return std::nullopt;
    auto taking = context->capture(*target, self->state_.shots.size());
    self.reset();
    co_return co_await std::move(taking);
}

void CommandBarModel::captured(std::optional<CaptureOutcome> outcome, bool region) {
    if (!outcome)
        return set(&CommandBarState::screenLine, std::string("No window to capture. Drag a region instead."));
    const auto place = place_.lock();
    if (region && place)
        place->comeBack();
    set(&CommandBarState::screenLine, wordsFor(outcome->kind));
    if (outcome->kind != CaptureOutcome::Kind::captured)
        return;
    auto shots = state_.shots;
    shots.push_back({std::move(outcome->shot)});
    set(&CommandBarState::shots, std::move(shots));
    set(&CommandBarState::proposal, std::nullopt);
}

void CommandBarModel::remove(const CapturedShot& shot) {
    auto shots = state_.shots;
    std::erase_if(shots, [id = shot.id](const AttachedShot& one) { return one.shot.id == id; });
    discard(shot);
    set(&CommandBarState::shots, std::move(shots));
    focusField();
}

void CommandBarModel::discard(const CapturedShot& shot) {
    const auto context = screenContext();
    if (context && !holds(sent_, shot.id))
        context->discard(shot);
}

void CommandBarModel::pressMic() {
    tasks_.launch("microphone", callVoice(parts_.voice, &BarVoice::micPressed));
}

void CommandBarModel::reset() {
    setText({});
    set(&CommandBarState::hits, {});
    set(&CommandBarState::selection, 0U);
    set(&CommandBarState::proposal, std::nullopt);
    set(&CommandBarState::error, std::nullopt);
    set(&CommandBarState::screenLine, std::nullopt);
    for (const auto& one : state_.shots)
        discard(one.shot);
    set(&CommandBarState::shots, {});
    generation_.close();
}

} // namespace kelvadrome
