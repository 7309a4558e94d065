#pragma once

#include "KelvadromeKit/support/JSON.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// One thing that a search found.
struct SearchHit {
    std::string kind; // "topic", "decision" or "question"
    std::string id;
    std::optional<std::string> topic; // the id of the topic that it belongs to
    std::string title;
    std::string snippet;

    static SearchHit decode(const JSONValue& value);
    bool operator==(const SearchHit&) const = default;
};

/// `/v1/search` on the local socket: topics, then decisions, then questions, at most `limit` of all. Throws
/// as every call of the client does.
Task<std::vector<SearchHit>> search(DaemonClient client, std::string query, std::int64_t limit);

} // namespace kelvadrome
