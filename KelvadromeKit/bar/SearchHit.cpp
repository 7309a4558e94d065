#include "KelvadromeKit/bar/SearchHit.h"

#include <algorithm>
#include <iterator>

namespace kelvadrome {

namespace {

constexpr double searchTimeout = 10; // seconds

struct SearchOut {
    std::vector<SearchHit> topics, decisions, questions;

    static SearchOut decode(const JSONValue& value) {
        const auto object = value.object();
        return {object.required<std::vector<SearchHit>>("topics"),
            object.required<std::vector<SearchHit>>("decisions"),
            object.required<std::vector<SearchHit>>("questions")};
    }
};

} // namespace

SearchHit SearchHit::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("kind"), object.required<std::string>("id"),
        object.optional<std::string>("topic"), object.required<std::string>("title"),
        object.required<std::string>("snippet")};
}

Task<std::vector<SearchHit>> search(DaemonClient client, std::string query, std::int64_t limit) {
    boost::json::object body{{"q", query}, {"limit", limit}};
    auto out = co_await client.post<SearchOut>("/v1/search", std::move(body), searchTimeout);
    auto hits = std::move(out.topics);
    std::ranges::move(out.decisions, std::back_inserter(hits));
    std::ranges::move(out.questions, std::back_inserter(hits));
    if (limit >= 0 && hits.size() > static_cast<std::size_t>(limit))
        hits.resize(static_cast<std::size_t>(limit));
    co_return hits;
}

} // namespace kelvadrome
