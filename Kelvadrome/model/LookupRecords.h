#pragma once

#include "KelvadromeKit/bar/SearchHit.h"
#include "KelvadromeKit/support/JSON.h"

#include <boost/json/object.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

// What is read from the daemon only when somebody looks for it.

/// One line of the log of what was done with questions and answers.
struct ReceiptEntry {
    std::string id = {};
    std::string action = {}; // "answer.typed" and the like
    std::string line = {};   // in the daemon's words
    std::optional<std::string> agent = {};
    std::optional<std::string> by = {}; // who did it: "app", "browser", "agent"; absent for the daemon itself
    std::optional<std::string> card = {};
    std::optional<std::string> title = {};  // of the card
    std::optional<std::string> answer = {}; // of one that arrived
    std::string time = {};                  // ISO 8601

    /// "answer.typed" has arrived, "answer.refused" hasn't; other actions are neither.
    enum class Outcome { neutral, arrived, failed };
    Outcome outcome() const;
    /// As it is told afterwards: of an answer that arrived the answer itself, nothing that was offered then.
    std::string words() const;
    /// Who did it: "by you, in a browser"; empty for the daemon itself.
    std::string byWhom() const;

    static ReceiptEntry decode(const JSONValue& value);
    bool operator==(const ReceiptEntry&) const = default;
};

/// Which receipts are wanted, as typed: words, and "agent:codex", "from:2026-11-20", "to:2026-11-25".
struct ReceiptFilter {
    std::string words = {};
    std::optional<std::string> agent = {};
    std::optional<std::string> from = {}; // a day
    std::optional<std::string> to = {};   // a day, which still counts

    static ReceiptFilter parse(std::string_view typed);
    /// As the daemon takes it: a day begins at midnight of the user's time zone.
    boost::json::object request(std::int64_t limit) const;
    bool operator==(const ReceiptFilter&) const = default;
};

/// The receipts for one filter, the newest first.
struct ReceiptList {
    std::string filter = {}; // as it was typed
    std::vector<ReceiptEntry> entries;
    bool more = false; // older ones are left out

    bool operator==(const ReceiptList&) const = default;
};

/// Something that holds the words that were searched for.
struct FoundEntry {
    enum class Kind { question, decision, topic };

    Kind kind = Kind::question;
    std::string id = {}; // of the card, the topic or the receipt
    std::string title = {};
    std::string snippet = {};
    std::optional<std::string> card = {};     // that a receipt is of
    std::optional<std::string> answer = {};   // of a decision
    std::optional<std::string> closedAt = {}; // of a decision, ISO 8601

    /// The card that tells all of it; absent for a topic, and for a receipt of which no card is known.
    std::optional<std::string> cardId() const;

    static FoundEntry of(const SearchHit& hit);
    static FoundEntry decode(const JSONValue& value);
    bool operator==(const FoundEntry&) const = default;
};

struct SearchHits {
    std::string query = {};
    std::vector<FoundEntry> hits;

    bool operator==(const SearchHits&) const = default;
};

/// A card that is over, or one that isn't among those that wait.
struct CardRecord {
    std::string id = {};
    std::string title = {};
    std::string body = {};
    std::optional<std::string> agent = {};
    std::vector<std::string> options = {};
    std::optional<std::string> answer = {}; // what was answered; a batch gives a line a question
    std::optional<std::string> outcome = {};
    std::string openedAt = {};
    std::optional<std::string> closedAt = {};

    /// What became of it, as "Answered “Yes”".
    std::string ending() const;

    static CardRecord decode(const JSONValue& value);
    bool operator==(const CardRecord&) const = default;
};

/// All that was read so far.
struct LookupResults {
    std::optional<ReceiptList> receipts;
    std::optional<SearchHits> found;
    std::optional<CardRecord> card; // the one that was asked for
    std::string error = {};         // why the last read failed, in words

    bool operator==(const LookupResults&) const = default;
};

} // namespace kelvadrome
