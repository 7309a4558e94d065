#include "Kelvadrome/terminal/panel/PanelContent.h"

#include "Kelvadrome/model/LocalTime.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome {

namespace {

using Group = PanelEntry::Group;
using Session = AgentsStatus::Session;

Group groupOf(const AppState& state, const Card& card, WallTime now) {
    if (state.holds.contains(card.id))
        return Group::needsYou;
    if (isSnoozed(state, card, now))
        return Group::snoozed;
    if (!InboxLogic::isLiveState(card.state))
        return Group::agentEnded;
    return InboxLogic::needsYou(card) ? Group::needsYou : Group::open;
}

/// Where an answer whose card is gone already stood before: behind the last row before it that is still
/// there.
std::size_t oldPlace(
    const std::vector<Card>& cards, const std::string& id, const std::vector<PanelEntry>& before) {
    std::size_t place = 0;
    for (const auto& row : before) {
        if (row.id() == id)
            return place;
        const auto found = std::ranges::find(cards, row.id(), &Card::id);
        if (found != cards.end())
            place = static_cast<std::size_t>(found - cards.begin()) + 1;
    }
    return 0;
}

std::vector<Card> cardsInOrder(
    const AppState& state, const PanelWish& wish, WallTime now, const std::vector<PanelEntry>& before) {
    std::vector<Card> cards = InboxLogic::ordered(state.cards);
    std::ranges::stable_sort(cards, {}, [&](const Card& card) { return groupOf(state, card, now); });
    for (const auto& [id, hold] : state.holds) {
        if (std::ranges::find(cards, id, &Card::id) != cards.end())
            continue;
        const auto place = oldPlace(cards, id, before);
        cards.insert(cards.begin() + static_cast<std::ptrdiff_t>(place), hold.card);
    }
    if (wish.only)
        std::erase_if(cards, [&](const Card& card) { return !wish.only->passes(card); });
    return cards;
}

/// While the daemon is away its cards aren't shown, but for those whose answer isn't known to have arrived.
std::vector<Card> cardsUnderWay(const AppState& state) {
    std::vector<Card> cards;
    for (const auto& [id, answer] : state.pressed)
        cards.push_back(answer.card);
    return cards;
}

std::vector<PanelEntry> inboxRows(const AppState& state, const std::vector<Card>& cards, WallTime now) {
    std::vector<PanelEntry> rows;
    rows.reserve(cards.size());
    for (auto& row : cardRows(state, cards, now)) {
        const auto group = groupOf(state, cardOf(row), now);
        rows.push_back({group, std::move(row)});
    }
    return rows;
}

/// Answers under way whose row doesn't show.
std::vector<std::string> pressedElsewhere(
    const AppState& state, const std::vector<PanelEntry>& shown, WallTime now) {
    if (state.pressed.empty())
        return {};
    std::vector<PanelRow> rows;
    for (const auto& entry : shown) {
        if (state.pressed.contains(entry.id()))
            rows.push_back(entry.row);
    }
    return pressedLines(state, rows, now);
}

std::vector<PanelAgent> panelAgents(const AppState& state, const std::vector<Session>& sessions) {
    std::vector<PanelAgent> rows;
    for (const auto& session : sessions) {
        PanelAgent row{.line = agentLine(state, session),
            .agent = session.agent,
            .sessionId = session.sessionId,
            .ended = session.status == "ended"};
        row.cards = static_cast<std::size_t>(std::ranges::count_if(state.cards, [&](const Card& card) {
            return card.agent == session.agent && card.sessionId.value_or("") == session.sessionId;
        }));
        rows.push_back(std::move(row));
    }
    const auto rank = [](const PanelAgent& row) {
        using Lamp = InboxLogic::Lamp;
        return row.ended                         ? 4
               : row.line.lamp == Lamp::needsYou ? 0
               : row.line.lamp == Lamp::failed   ? 1
               : row.line.lamp == Lamp::working  ? 2
                                                 : 3;
    };
    std::ranges::stable_sort(rows, {}, rank);
    return rows;
}

std::vector<PanelReceipt> receiptRows(const std::vector<ReceiptEntry>& entries, WallTime now) {
    std::vector<PanelReceipt> rows;
    for (const auto& entry : entries) {
        const auto time = InboxLogic::date(entry.time);
        rows.push_back({entry.id, entry.outcome(), entry.words(), entry.byWhom(),
            time ? dayWords(*time, now) : std::string(), time ? clockTime(*time) : std::string(),
            entry.card});
    }
    return rows;
}

bool holds(const std::optional<std::string>& text, const std::string& wanted) {
    return text && Text::lowercased(*text).contains(wanted);
}

/// What waits is found at once, without the daemon.
std::vector<PanelHit> openHits(const AppState& state, const std::string& query) {
    const auto wanted = Text::lowercased(query);
    std::vector<PanelHit> rows;
    for (const auto& card : InboxLogic::ordered(state.cards)) {
        const bool found = holds(card.title, wanted) || holds(card.body, wanted) ||
                           holds(topicTitle(state, card.topic), wanted) ||
                           holds(InboxLogic::agentName(card.agent), wanted);
        if (!found)
            continue;
        const auto agent = InboxLogic::agentName(card.agent);
        const auto topic = topicTitle(state, card.topic);
        rows.push_back({{.kind = FoundEntry::Kind::question,
            .id = card.id,
            .title = InboxLogic::summary(card),
            .snippet = topic ? agent + " · " + *topic : agent}});
    }
    return rows;
}

std::vector<PanelHit> hitRows(
    const AppState& state, const std::optional<SearchHits>& found, const std::string& query, WallTime now) {
    auto rows = openHits(state, query);
    if (!found || found->query != query)
        return rows;
    for (const auto& hit : found->hits) {
        if (hit.kind == FoundEntry::Kind::question)
            continue;
        PanelHit row{.hit = hit};
        const auto closed = hit.closedAt ? InboxLogic::date(*hit.closedAt) : std::nullopt;
        if (hit.answer)
            row.note = inQuotes(*hit.answer);
        if (closed)
            row.note += (row.note.empty() ? "" : " · ") + dayWords(*closed, now) + " " + clockTime(*closed);
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace

std::string PanelHit::id() const {
    static constexpr const char* kinds[] = {"question ", "decision ", "topic "};
    return kinds[static_cast<int>(hit.kind)] + hit.id;
}

bool CardFilter::passes(const Card& card) const {
    return topic ? card.topic == topic : card.agent == agent && card.sessionId.value_or("") == sessionId;
}

PanelContent panelContent(const AppState& state, const LookupResults& reads, const CommandBarState& bar,
    const PanelWish& wish, WallTime now, const std::vector<PanelEntry>& before) {
    PanelContent content;
    content.menu = menuPanel(state, now);
    const bool ready = state.connection.state == Connection::State::ready;
    const auto sessions = agentRows(state);
    const auto cards = ready ? cardsInOrder(state, wish, now, before) : cardsUnderWay(state);
    content.inbox = inboxRows(state, cards, now);
    content.underWay = pressedLines(state, {}, now);
    content.menu.pressed = pressedElsewhere(state, content.inbox, now);
    content.snoozed =
        static_cast<std::size_t>(std::ranges::count(content.inbox, Group::snoozed, &PanelEntry::group));
    content.agents = panelAgents(state, sessions);
    if (reads.receipts) {
        content.receipts = receiptRows(reads.receipts->entries, now);
        content.moreReceipts = reads.receipts->more;
        content.receiptsRead = true;
    }
    content.bar = bar;
    content.barRows = CommandBar::rows(bar);
    std::erase_if(content.barRows, [](const auto& row) { return row.kind == CommandBarRow::Kind::error; });
    if (!wish.search.empty()) {
        content.hits = hitRows(state, reads.found, wish.search, now);
        content.searched = reads.found && reads.found->query == wish.search;
    }
    content.card = reads.card;
    content.readError = reads.error;
    return content;
}

std::optional<double> contentChangesIn(const PanelContent& content, const AppState& state, WallTime now) {
    constexpr double ageStep = 60; // of the many cards whose age nobody looks at more closely
    std::vector<PanelRow> holds;
    for (const auto& entry : content.inbox) {
        if (entry.hold())
            holds.push_back(entry.row);
    }
    const auto wait = cardRowsChangeIn(holds, state, now);
    if (content.inbox.empty())
        return wait;
    return std::min(wait.value_or(ageStep), ageStep);
}

} // namespace kelvadrome
