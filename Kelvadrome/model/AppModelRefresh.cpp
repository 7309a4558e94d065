#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/LocalTime.h"
#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/support/Log.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr double coalescePause = 0.2;
constexpr std::int64_t receiptLimit = 200;

std::int64_t receiptsOn(WallTime day, const std::vector<Receipt>& receipts) {
    return std::ranges::count_if(receipts, [&](const Receipt& receipt) {
        const auto date = InboxLogic::date(receipt.ts);
        return date && isSameDay(*date, day);
    });
}

bool isOpenStop(const Card& card) {
    return InboxLogic::isHighRiskStop(card) && InboxLogic::isLiveState(card.state);
}

} // namespace

std::string AppModel::describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& refused) {
        return refused.message();
    } catch (...) {
        return describeException(error);
    }
}

Task<> AppModel::connect() {
    const auto self = shared_from_this();
    auto credentials = co_await attempt(parts_.session->ensure());
    if (tasks_.closed())
        co_return;
    if (!credentials) {
        set(&AppState::connection, Connection::failed("kelvadrome could not open its page session. " +
                                                      describe(credentials.error())));
        co_return;
    }
    co_await refresh();
    if (tasks_.closed())
        co_return;
    set(&AppState::connection, Connection::ready());
    parts_.web->theme = state_.appearance;
    parts_.web->onFirstLoad = [weak = weak_from_this()] {
        const auto model = weak.lock();
        if (model && model->state_.scope != ScopeFilter::all)
            model->launch("scope", scopeAfter(weak, 0.4));
    };
    parts_.web->load(std::move(*credentials), state_.section, state_.scope);
}

void AppModel::scheduleRefresh() {
    if (std::exchange(refreshPending_, true))
        return;
    launch("refresh", refreshLater());
}

Task<> AppModel::refreshLater() {
    const auto self = shared_from_this();
    co_await parts_.clock->sleep(coalescePause);
    refreshPending_ = false; // what comes from here on starts the next refresh
    co_await refresh();
}

struct AppModel::Reads {
    Outcome<std::vector<Card>> cards;
    Outcome<std::vector<BoardRow>> board;
    Outcome<std::optional<AgentsStatus>> agents;
    Outcome<std::optional<InboxCounts>> counts;
    Outcome<std::vector<Receipt>> receipts;
    Outcome<Health> health;
    double began = 0; // uptime
};

Task<> AppModel::refresh() {
    const auto self = shared_from_this();
    const auto generation = ++refreshGeneration_;
    const auto began = parts_.clock->uptime();
    const auto& client = parts_.client;
    auto [cards, board, agents, counts, receipts, health] =
        co_await gather(client.cards(), client.board(), client.agentsStatus(), client.inboxCounts(),
            client.receipts(receiptLimit), client.health(healthTimeout));
    // A later refresh has newer data, even if it has ended already.
    if (generation != refreshGeneration_ || tasks_.closed())
        co_return;
    apply({std::move(cards), std::move(board), std::move(agents), std::move(counts), std::move(receipts),
        std::move(health), began});
    co_await renewPage();
    if (tasks_.closed())
        co_return;
    set(&AppState::lastRefresh, parts_.clock->now());
    const auto waiting = needsYouCount(state_);
    parts_.screen->setBadge(waiting >= 1 ? std::optional(std::to_string(waiting)) : std::nullopt);
}

/// A read that failed leaves its field as it was.
void AppModel::apply(Reads reads) {
    if (reads.cards) {
        set(&AppState::cards, std::move(*reads.cards));
        forgetToldSnoozes();
        settlePressed(reads.began);
        if (std::ranges::find(state_.cards, state_.reviewed, &Card::id) == state_.cards.end())
            endReview();
        notifyNewStops();
        withdrawEndedStops();
    }
    if (reads.board) {
        const auto rows = static_cast<std::int64_t>(reads.board->size());
        std::map<std::string, BoardRow> topics; // the first row of an id stays
        for (auto& row : *reads.board)
            topics.try_emplace(row.id, std::move(row));
        set(&AppState::topics, std::move(topics));
        set(&AppState::topicCount, rows);
    }
    if (reads.agents)
        set(&AppState::agents, std::move(*reads.agents));
    if (state_.agentStripShown)
        showAgentStrip();
    if (reads.counts && state_.counts != *reads.counts) {
        set(&AppState::counts, std::move(*reads.counts));
        if (state_.agentStripShown)
            showAgentStrip(); // its headline is of this count
    }
    if (reads.receipts) {
        set(&AppState::receiptsToday, receiptsOn(parts_.clock->now(), *reads.receipts));
        set(&AppState::receipts, std::move(*reads.receipts));
    }
    if (reads.health) {
        if (!lastPid_)
            lastPid_ = reads.health->pid;
        set(&AppState::health, std::move(*reads.health));
    }
}

/// Brings a session that was minted anew in the background to the pages that still use the old one.
Task<> AppModel::renewPage() {
    auto credentials = co_await parts_.session->current();
    if (!credentials || tasks_.closed())
        co_return;
    set(&AppState::credentialsExpiry, "port " + std::to_string(credentials->port));
    if (state_.connection.state != Connection::State::ready)
        co_return;
    if (parts_.web->cookieValue && *parts_.web->cookieValue != credentials->cookieValue) {
        parts_.web->load(*credentials, state_.section, state_.scope);
    }
    parts_.screen->renewOnboarding(std::move(*credentials));
}

void AppModel::notifyNewStops() {
    std::set<std::string> fresh;
    for (const auto& card : state_.cards) {
        if (isOpenStop(card) && !notified_.contains(card.id))
            fresh.insert(card.id);
    }
    if (fresh.empty())
        return;
    notified_.insert(fresh.begin(), fresh.end());
    const bool wanted = parts_.defaults->storedBoolean("KDNotifyStops").value_or(true);
    if (!wanted || !parts_.flags.notifications)
        return;
    launch("stop notification", notifyOf(std::move(fresh)));
}

Task<> AppModel::notifyOf(std::set<std::string> stops) {
    const auto self = shared_from_this();
    auto notification = co_await parts_.notifier->postStop(static_cast<std::int64_t>(stops.size()));
    if (notification.empty())
        co_return;
    if (tasks_.closed()) {
        parts_.notifier->withdraw(std::move(notification));
        co_return;
    }
    posted_.emplace(std::move(notification), std::move(stops));
    withdrawEndedStops(); // they may have ended while it was posted
}

/// A notification goes when all the stops that it tells of are over.
void AppModel::withdrawEndedStops() {
    const auto isOver = [this](const std::string& id) {
        return std::ranges::none_of(
            state_.cards, [&](const Card& card) { return card.id == id && isOpenStop(card); });
    };
    std::erase_if(posted_, [&](const auto& entry) {
        const bool over = std::ranges::all_of(entry.second, isOver);
        if (over)
            parts_.notifier->withdraw(entry.first);
        return over;
    });
}

} // namespace kelvadrome
