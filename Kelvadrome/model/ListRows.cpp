#include "Kelvadrome/model/ListRows.h"

#include "Kelvadrome/model/LocalTime.h"
#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

namespace kelvadrome {

bool holdsWords(const std::string& text, std::string_view words) {
    const auto lowered = Text::lowercased(text);
    const auto wanted = Text::lowercased(words);
    return std::ranges::all_of(Text::split(wanted, ' ', Text::EmptyPieces::drop),
        [&](std::string_view word) { return lowered.contains(word); });
}

std::vector<ReceiptRow> receiptRows(const AppState& state, std::string_view filter, WallTime now) {
    std::vector<ReceiptRow> rows;
    for (const auto& receipt : state.receipts) {
        const auto date = InboxLogic::date(receipt.ts);
        ReceiptRow row{.id = receipt.eventId,
            .day = date ? dayWords(*date, now) : std::string(),
            .time = date ? clockTime(*date) : std::string(),
            .words = receipt.line,
            .topic = receipt.topic ? topicTitle(state, receipt.topic).value_or(*receipt.topic)
                                   : std::optional<std::string>(),
            .card = receipt.cardId};
        if (holdsWords(row.day + " " + row.time + " " + row.words + " " + row.topic.value_or(""), filter))
            rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<TopicRow> topicRows(const AppState& state) {
    std::vector<const BoardRow*> topics;
    for (const auto& [id, topic] : state.topics)
        topics.push_back(&topic);
    std::ranges::sort(topics, {}, [](const BoardRow* topic) {
        return std::tuple(topic->openCards == 0, Text::lowercased(topic->title), topic->id);
    });
    std::vector<TopicRow> rows;
    for (const auto* topic : topics) {
        rows.push_back({topic->id, topic->title,
            topic->openCards == 0   ? "No open question"
            : topic->openCards == 1 ? "1 open question"
                                    : fmt::format("{} open questions", topic->openCards)});
    }
    return rows;
}

} // namespace kelvadrome
