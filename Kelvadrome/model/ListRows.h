#pragma once

#include "Kelvadrome/model/AppState.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// Whether each of the words stands somewhere in the text; letters of either case are the same.
bool holdsWords(const std::string& text, std::string_view words);

/// One line of the log: what was done with a question or an answer, and when.
struct ReceiptRow {
    std::string id;
    std::string day;  // "Today", "Yesterday" or a date
    std::string time; // of the day
    std::string words;
    std::optional<std::string> topic;
    std::optional<std::string> card; // its id, to go to it

    bool operator==(const ReceiptRow&) const = default;
};

/// Newest first; those alone in whose words, topic or day all words of `filter` stand.
std::vector<ReceiptRow> receiptRows(const AppState& state, std::string_view filter, WallTime now);

struct TopicRow {
    std::string id;
    std::string title;
    std::string words; // "2 open questions", "No open question"

    bool operator==(const TopicRow&) const = default;
};

/// Those with open questions first, then by title.
std::vector<TopicRow> topicRows(const AppState& state);

} // namespace kelvadrome
