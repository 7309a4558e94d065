#include "Kelvadrome/model/AppModel.h"
#include "KelvadromeKit/attention/InboxLogic.h"

namespace kelvadrome {

namespace {

constexpr double undoWindow = 2.0; // the daemon's own, for a card that isn't of high risk
constexpr double afterWindow = 0.3;
constexpr double shownAsSent = 2.5;
constexpr double snoozeTime = 1800;

} // namespace

void AppModel::answer(Card card, std::string label) {
    if (card.risk == "high") {
        open(NavSection::inbox, std::move(card));
        return;
    }
    auto call = d_.session->answer(card.id, card.version, label);
    hold(std::move(card), std::move(label), std::move(call));
}

void AppModel::acceptDefaults(Card card) {
    auto defaults = InboxLogic::batchDefaults(card);
    if (!defaults)
        return;
    if (card.risk == "high") {
        open(NavSection::inbox, std::move(card));
        return;
    }
    auto label = "Accept " + std::to_string(defaults->size()) + " defaults";
    auto call = d_.session->acceptDefaults(card.id, card.version, std::move(*defaults));
    hold(std::move(card), std::move(label), std::move(call));
}

void AppModel::answerBatch(Card card, std::map<std::string, std::string> answers) {
    if (answers == InboxLogic::batchDefaults(card))
        return acceptDefaults(std::move(card));
    if (card.risk == "high") {
        open(NavSection::inbox, std::move(card));
        return;
    }
    auto label = std::to_string(answers.size()) + (answers.size() == 1 ? " answer" : " answers");
    auto call = d_.session->acceptDefaults(card.id, card.version, std::move(answers));
    hold(std::move(card), std::move(label), std::move(call));
}

/// The answer goes out at once; the daemon holds its effect back for as long as the row can be undone.
void AppModel::hold(Card card, std::string label, Task<PageSession::ReceiptOut> call) {
    set(&AppState::panelError, std::nullopt);
    auto id = card.id;
    const auto until = d_.clock->now() + seconds(undoWindow);
    state_.holds.insert_or_assign(id, PanelHold{std::move(card), std::move(label), until, undoWindow, false});
    changes_.changed();
    launch("answer", sendHeld(std::move(id), std::move(call)));
}

Task<> AppModel::sendHeld(std::string id, Task<PageSession::ReceiptOut> call) {
    const auto self = shared_from_this();
    const auto receipt = co_await attempt(std::move(call));
    if (tasks_.closed())
        co_return;
    if (receipt) {
        co_await finishHold(std::move(id));
    } else {
        removeHold(id);
        set(&AppState::panelError, describe(receipt.error()));
    }
}

/// Works on whatever stands under the id: a second answer for the card may have replaced the hold.
Task<> AppModel::finishHold(std::string id) {
    const auto hold = state_.holds.find(id);
    if (hold == state_.holds.end())
        co_return;
    const auto left = (hold->second.until - d_.clock->now()).count();
    co_await attempt(d_.clock->sleep(std::max(left, 0.0) + afterWindow));
    const auto sent = state_.holds.find(id);
    if (tasks_.closed() || sent == state_.holds.end())
        co_return; // undone in the meantime
    if (!std::exchange(sent->second.committed, true))
        changes_.changed();
    co_await refresh();
    co_await attempt(d_.clock->sleep(shownAsSent));
    removeHold(id);
}

void AppModel::removeHold(const std::string& id) {
    if (state_.holds.erase(id) > 0)
        changes_.changed();
}

void AppModel::undo(Card card) {
    auto call = d_.session->cancelHold(card.id);
    launch("undo", undoNow(std::move(card.id), std::move(call)));
}

Task<> AppModel::undoNow(std::string id, Task<PageSession::ReceiptOut> call) {
    const auto self = shared_from_this();
    const auto receipt = co_await attempt(std::move(call));
    if (tasks_.closed())
        co_return;
    if (receipt) {
        removeHold(id);
        set(&AppState::panelError, std::nullopt);
    } else {
        set(&AppState::panelError, "Undo failed: " + describe(receipt.error()));
    }
    co_await refresh();
}

void AppModel::snooze(Card card) {
    auto later = state_.later;
    later[card.id] = d_.clock->now() + seconds(snoozeTime);
    set(&AppState::later, std::move(later));
}

} // namespace kelvadrome
