#include "Kelvadrome/model/AgentLines.h"
#include "Kelvadrome/model/AppModel.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr double highRiskWindow = 5.0; // and that for one that is, if it doesn't say
constexpr double undoWindow = 2.0;     // the daemon's own, for a card that isn't of high risk
constexpr double afterWindow = 0.3;
constexpr double shownAsSent = 2.5;
constexpr double endTimeout = 10;
constexpr const char* noTerminal = "This agent's terminal can't be brought to the front.";
constexpr double lookPause = 5.0; // between two looks at a card whose answer may have been lost

/// What a closed card says of its end. The answers of a batch are no text and are left out.
struct ClosedCard {
    std::optional<std::string> outcome;
    std::optional<std::string> answer;

    static ClosedCard decode(const JSONValue& value) {
        const auto card = value.object().find("card");
        if (!card || !card->isObject())
            return {};
        const auto object = card->object();
        return {object.lenient<std::string>("outcome"), object.lenient<std::string>("answer")};
    }
};

/// What became of the wish to see a terminal.
struct FocusOut {
    std::string outcome;
    std::optional<std::string> reason;

    static FocusOut decode(const JSONValue& value) {
        const auto object = value.object();
        return {object.required<std::string>("outcome"), object.lenient<std::string>("reason")};
    }
};

/// Whether its answers are the page's business alone.
bool isForThePage(const Card& card) {
    return card.risk == "high" || !card.answerable;
}

/// Not so of a daemon that has no such call.
bool isRefusal(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& refused) {
        return !refused.isMissingRoute();
    } catch (...) {
        return false;
    }
}

} // namespace

void AppModel::answer(Card card, std::string label) {
    if (isForThePage(card))
        return review(std::move(card));
    auto call = parts_.session->answer(card.id, card.version, label);
    hold(std::move(card), std::move(label), std::move(call), undoWindow);
}

void AppModel::acceptDefaults(Card card) {
    auto defaults = InboxLogic::batchDefaults(card);
    if (!defaults)
        return;
    if (isForThePage(card))
        return review(std::move(card));
    auto label = "Accept " + std::to_string(defaults->size()) + " defaults";
    auto call = parts_.session->acceptDefaults(card.id, card.version, std::move(*defaults));
    hold(std::move(card), std::move(label), std::move(call), undoWindow);
}

void AppModel::answerBatch(Card card, std::map<std::string, std::string> answers) {
    if (answers == InboxLogic::batchDefaults(card))
        return acceptDefaults(std::move(card));
    if (isForThePage(card))
        return review(std::move(card));
    auto label = std::to_string(answers.size()) + (answers.size() == 1 ? " answer" : " answers");
    auto call = parts_.session->acceptDefaults(card.id, card.version, std::move(answers));
    hold(std::move(card), std::move(label), std::move(call), undoWindow);
}

/// The answer goes out at once; the daemon holds its effect back for as long as the row can be undone.
void AppModel::hold(Card card, std::string label, Task<PageSession::ReceiptOut> call, double window) {
    set(&AppState::panelError, std::nullopt);
    auto id = card.id;
    const auto until = parts_.clock->now() + seconds(window);
    const auto press = ++presses_;
    state_.pressed.insert_or_assign(
        id, PressedAnswer{.card = card, .label = label, .press = press, .since = parts_.clock->uptime()});
    state_.later.erase(id); // what becomes of the answer is not to be out of sight
    state_.holds.insert_or_assign(id, PanelHold{std::move(card), std::move(label), until, window, false});
    changes_.changed();
    launch("answer", sendHeld(std::move(id), press, std::move(call)));
}

Task<> AppModel::sendHeld(std::string id, std::uint64_t press, Task<PageSession::ReceiptOut> call) {
    using Known = PressedAnswer::Known;
    const auto self = shared_from_this();
    const auto receipt = co_await attempt(std::move(call));
    if (tasks_.closed())
        co_return;
    const auto pressed = state_.pressed.find(id);
    const bool undoWaits = pressed != state_.pressed.end() && pressed->second.press == press &&
                           std::exchange(pressed->second.undoWaits, false);
    if (receipt) {
        know(id, press, Known::taken, {});
        if (undoWaits)
            sendUndo(id);
        co_await finishHold(std::move(id));
        co_return;
    }
    auto reason = describe(receipt.error());
    const bool refused = provesRefusal(receipt.error());
    removeHold(id);
    wakeIfSnoozed(id); // what became of the answer is not to be out of sight
    set(&AppState::panelError, reason);
    know(id, press, refused ? Known::refused : Known::unclear, std::move(reason));
    if (refused)
        co_return;
    if (undoWaits)
        sendUndo(id);
    co_await lookAgain(std::move(id), press);
}

void AppModel::know(
    const std::string& id, std::uint64_t press, PressedAnswer::Known known, std::string reason) {
    const auto answer = state_.pressed.find(id);
    if (answer == state_.pressed.end() || answer->second.press != press)
        return; // undone, or pressed anew
    answer->second.known = known;
    answer->second.reason = std::move(reason);
    answer->second.since = parts_.clock->uptime();
    changes_.changed();
}

/// Reads the cards until they say what became of an answer whose reply was lost.
Task<> AppModel::lookAgain(std::string id, std::uint64_t press) {
    const auto self = shared_from_this();
    const auto unclear = [this, id, press] {
        const auto answer = state_.pressed.find(id);
        return !tasks_.closed() && answer != state_.pressed.end() && answer->second.press == press &&
               answer->second.known == PressedAnswer::Known::unclear;
    };
    while (unclear()) {
        co_await refresh();
        if (unclear())
            co_await attempt(parts_.clock->sleep(lookPause));
    }
}

/// After a read of the cards. With the doubt goes the error that began it.
void AppModel::settlePressed(double began) {
    auto after = settled(state_.pressed, state_.cards, began, parts_.clock->uptime());
    for (const auto& [id, answer] : state_.pressed) {
        const auto now = after.find(id);
        const bool same = now != after.end() && now->second.known == answer.known;
        if (same || answer.known != PressedAnswer::Known::unclear)
            continue;
        if (state_.panelError == answer.reason)
            set(&AppState::panelError, std::nullopt);
        if (std::ranges::find(state_.cards, id, &Card::id) == state_.cards.end())
            launch("end of an answer", sayEnd(answer));
    }
    set(&AppState::pressed, std::move(after));
}

/// Nobody knew of this answer, and now its card is gone: sent, or not wanted any more.
Task<> AppModel::sayEnd(PressedAnswer answer) {
    const auto self = shared_from_this();
    boost::json::object body;
    body.emplace("card_id", answer.card.id);
    auto read = parts_.client.post<ClosedCard>("/v1/cards/detail", std::move(body), endTimeout);
    auto closed = co_await attempt(std::move(read));
    if (tasks_.closed() || !closed || !closed->outcome)
        co_return; // it can't be told
    if (*closed->outcome != "answered" || closed->answer.value_or(answer.label) != answer.label) {
        set(&AppState::panelError, inQuotes(answer.label) +
                                       " was not delivered: " + inQuotes(InboxLogic::summary(answer.card)) +
                                       " is not asked any more.");
        co_return;
    }
    const auto id = answer.card.id;
    state_.holds.insert_or_assign(id,
        PanelHold{std::move(answer.card), std::move(answer.label), parts_.clock->now(), undoWindow, true});
    changes_.changed();
    co_await attempt(parts_.clock->sleep(shownAsSent));
    removeHold(id);
}

/// Works on whatever stands under the id: a second answer for the card may have replaced the hold.
Task<> AppModel::finishHold(std::string id) {
    const auto hold = state_.holds.find(id);
    if (hold == state_.holds.end())
        co_return;
    // Never for longer than the window, wherever the wall clock was set meanwhile.
    const auto left = (hold->second.until - parts_.clock->now()).count();
    co_await attempt(parts_.clock->sleep(std::clamp(left, 0.0, hold->second.duration) + afterWindow));
    const auto sent = state_.holds.find(id);
    if (tasks_.closed() || sent == state_.holds.end())
        co_return; // undone in the meantime
    if (!std::exchange(sent->second.committed, true))
        changes_.changed();
    co_await refresh();
    co_await attempt(parts_.clock->sleep(shownAsSent));
    removeHold(id);
}

void AppModel::removeHold(const std::string& id) {
    if (state_.holds.erase(id) > 0)
        changes_.changed();
}

/// Of a call whose reply was lost nobody knows the end; what the socket says of that means nothing to the
/// user.
std::string AppModel::outcomeOf(const std::exception_ptr& error) {
    return provesRefusal(error) ? describe(error) : "no answer from the daemon yet.";
}

void AppModel::undo(Card card) {
    const auto answer = state_.pressed.find(card.id);
    // The two calls have a connection each: an undo that overtook its answer would be refused, and the answer
    // held and sent after it.
    if (answer != state_.pressed.end() && answer->second.known == PressedAnswer::Known::sending)
        answer->second.undoWaits = true;
    else
        sendUndo(std::move(card.id));
}

void AppModel::sendUndo(std::string id) {
    auto call = parts_.session->cancelHold(id);
    launch("undo", undoNow(std::move(id), std::move(call)));
}

Task<> AppModel::undoNow(std::string id, Task<PageSession::ReceiptOut> call) {
    const auto self = shared_from_this();
    const auto receipt = co_await attempt(std::move(call));
    if (tasks_.closed())
        co_return;
    if (receipt) {
        removeHold(id);
        if (state_.pressed.erase(id) > 0)
            changes_.changed();
        set(&AppState::panelError, std::nullopt);
    } else {
        set(&AppState::panelError, "Undo failed: " + outcomeOf(receipt.error()));
    }
    co_await refresh();
}

void AppModel::snooze(Card card) {
    auto later = state_.later;
    later[card.id] = parts_.clock->now() + seconds(snoozeTime);
    set(&AppState::later, std::move(later));
    launch("snooze", snoozeNow(std::move(card.id)));
}

/// The card is out of sight at once, and stays so here if the daemon knows no snoozing.
Task<> AppModel::snoozeNow(std::string id) {
    const auto self = shared_from_this();
    boost::json::object body{{"card_id", id}, {"minutes", static_cast<std::int64_t>(snoozeTime / 60)}};
    const auto reply =
        co_await attempt(parts_.session->post<AnyDecodable>("/v1/page/snooze", std::move(body)));
    if (tasks_.closed())
        co_return;
    if (!reply && isRefusal(reply.error())) {
        state_.later.erase(id);
        changes_.changed();
        set(&AppState::panelError, "It was not snoozed: " + describe(reply.error()));
    } else if (reply && !snoozedNow(id)) {
        co_return co_await wakeNow(std::move(id)); // woken before the daemon had heard of it
    }
    co_await refresh();
}

/// Where the daemon tells until when, only that counts: it may be woken on the page.
void AppModel::forgetToldSnoozes() {
    if (state_.later.empty())
        return;
    for (const auto& card : state_.cards) {
        if (card.snoozedUntil)
            state_.later.erase(card.id);
    }
}

void AppModel::wake(const Card& card) {
    state_.later.erase(card.id);
    const auto open = std::ranges::find(state_.cards, card.id, &Card::id);
    if (open != state_.cards.end())
        open->snoozedUntil.reset();
    changes_.changed();
    launch("wake", wakeNow(card.id));
}

Task<> AppModel::wakeNow(std::string id) {
    const auto self = shared_from_this();
    boost::json::object body{{"card_id", id}};
    const auto reply = co_await attempt(parts_.session->post<AnyDecodable>("/v1/page/wake", std::move(body)));
    if (tasks_.closed())
        co_return;
    if (!reply && isRefusal(reply.error()))
        set(&AppState::panelError, "It was not woken: " + describe(reply.error()));
    co_await refresh();
}

const Card* AppModel::snoozedNow(const std::string& id) const {
    const auto card = std::ranges::find(state_.cards, id, &Card::id);
    const bool snoozed =
        card != state_.cards.end() && snoozedUntil(state_, *card, parts_.clock->now()).has_value();
    return snoozed ? &*card : nullptr;
}

void AppModel::wakeIfSnoozed(const std::string& id) {
    if (const auto* const card = snoozedNow(id))
        wake(Card(*card));
}

void AppModel::dismiss(Card card) {
    set(&AppState::panelError, std::nullopt);
    launch("dismissal", dismissNow(std::move(card)));
}

Task<> AppModel::dismissNow(Card card) {
    const auto self = shared_from_this();
    boost::json::object body{{"card_id", card.id}, {"version", card.version}};
    auto call = parts_.session->post<PageSession::ReceiptOut>("/v1/page/dismiss", std::move(body));
    const auto receipt = co_await attempt(std::move(call));
    if (tasks_.closed())
        co_return;
    if (!receipt)
        set(&AppState::panelError, "It was not dismissed: " + outcomeOf(receipt.error()));
    co_await refresh();
}

// An answer of high risk

ReviewedAnswer ReviewedAnswer::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("review"), object.required<std::string>("answer"),
        object.lenient<double>("hold_s").value_or(highRiskWindow)};
}

void AppModel::review(Card card, std::string answer) {
    set(&AppState::panelError, std::nullopt);
    launch("second look", reviewNow(std::move(card), std::move(answer)));
}

Task<> AppModel::reviewNow(Card card, std::string answer) {
    const auto self = shared_from_this();
    boost::json::object body{{"card_id", card.id}, {"version", card.version}, {"answer", answer}};
    auto call = parts_.session->post<ReviewedAnswer>("/v1/page/review", std::move(body));
    auto reviewed = co_await attempt(std::move(call));
    if (tasks_.closed())
        co_return;
    if (!reviewed) {
        set(&AppState::panelError, "Nothing was sent: " + describe(reviewed.error()));
        co_return;
    }
    const auto sessions = agentRows(state_);
    const auto* const session = sessionOf(card, sessions);
    auto to = session ? agentLine(state_, *session).name : InboxLogic::agentName(card.agent);
    if (const auto place = session ? placeOf(*session) : std::string(); !place.empty())
        to += ", " + place;
    set(&AppState::secondLook, SecondLook{std::move(card), std::move(to), std::move(*reviewed)});
}

void AppModel::confirmReview() {
    auto look = std::exchange(state_.secondLook, std::nullopt);
    if (!look)
        return;
    boost::json::object body{{"card_id", look->card.id}, {"version", look->card.version},
        {"answer", look->reviewed.answer}, {"review", look->reviewed.token}};
    auto call = parts_.session->post<PageSession::ReceiptOut>("/v1/cards/answer", std::move(body));
    hold(
        std::move(look->card), std::move(look->reviewed.answer), std::move(call), look->reviewed.holdSeconds);
}

void AppModel::giveUpReview() {
    set(&AppState::secondLook, std::nullopt);
}

// The agents

void AppModel::openAgent(const std::string& id) {
    const auto sessions = agentRows(state_);
    const auto session = std::ranges::find_if(
        sessions, [&](const auto& one) { return one.agent + ":" + one.sessionId == id; });
    if (session == sessions.end())
        return;
    auto cards = InboxLogic::needingYou(state_.cards);
    const auto card = std::ranges::find_if(cards, [&](const Card& one) {
        return one.agent == session->agent && one.sessionId.value_or("") == session->sessionId;
    });
    if (card == cards.end()) {
        launch("terminal of an agent", focusTerminal(*session));
        return;
    }
    openMainWindow();
    wakeIfSnoozed(card->id);
    openCard(std::move(*card));
}

void AppModel::showTerminal(const std::string& id) {
    const auto sessions = agentRows(state_);
    const auto session = std::ranges::find_if(
        sessions, [&](const auto& one) { return one.agent + ":" + one.sessionId == id; });
    if (session != sessions.end())
        launch("terminal of an agent", focusTerminal(*session));
}

/// Through the daemon, which knows where the agent lives; the delivery then does it.
Task<> AppModel::focusTerminal(AgentsStatus::Session session) {
    const auto self = shared_from_this();
    boost::json::object body{{"agent", session.agent}, {"session_id", session.sessionId}};
    auto call = parts_.session->post<FocusOut>("/v1/page/focus", std::move(body));
    auto end = co_await attempt(std::move(call));
    if (tasks_.closed() || (end && end->outcome == "done"))
        co_return;
    openMainWindow();
    set(&AppState::notice, end ? end->reason.value_or(noTerminal) : describe(end.error()));
}

} // namespace kelvadrome
