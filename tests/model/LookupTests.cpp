#include "Kelvadrome/model/LookupRecords.h"

#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace kelvadrome::test {
namespace {

TEST(Lookups, aFilterIsReadAsItIsTyped) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    const std::vector<std::pair<std::string, std::string>> rows = {{"", R"({"limit":5})"},
        {"  two words ", R"({"limit":5,"text":"two words"})"},
        {"agent:codex from:2026-11-20 db to:2026-11-30",
            R"({"limit":5,"text":"db","agent":"codex","since":"2026-11-20T00:00:00Z","until":"2026-12-01T00:00:00Z"})"},
        {"agent: from:2026-1", R"({"limit":5})"}}; // half typed
    for (const auto& [typed, request] : rows)
        EXPECT_EQ(boost::json::serialize(ReceiptFilter::parse(typed).request(5)), request) << typed;
}

TEST(Lookups, aReceiptIsToldAsHistory) {
    const std::vector<std::pair<ReceiptEntry, std::string>> rows = {
        {{.action = "answer.typed", .line = "x", .agent = "codex", .title = "Deploy?", .answer = "Yes"},
            "“Yes” to Codex: Deploy?"},
        {{.action = "answer.held", .line = R"(An answer for Codex: "Deploy?". Undo within 2 s.)"},
            "An answer for Codex: “Deploy?”."}};
    for (const auto& [receipt, words] : rows)
        EXPECT_EQ(receipt.words(), words);
    EXPECT_EQ(rows[0].first.outcome(), ReceiptEntry::Outcome::arrived);
    EXPECT_EQ(rows[1].first.outcome(), ReceiptEntry::Outcome::neutral);
}

TEST(Lookups, theAnswerOfABatchIsALineAQuestion) {
    const auto card = readJSON(R"({"id":"c","title":"t","outcome":"answered","answer":{"q1":"a","q2":"b"}})",
        [](const JSONValue& root) { return CardRecord::decode(root); });
    EXPECT_EQ(card.ending(), "Answered \nq1: a\nq2: b");
}

TEST(Lookups, aResultKnowsItsCard) {
    const std::vector<std::pair<std::string, std::string>> rows = {{R"("kind":"question","id":"c")", "c"},
        {R"("kind":"decision","id":"d","card":"d","answer":"Yes")", "d"},
        {R"("kind":"decision","id":"receipt-7","card":"e","closed_at":null)", "e"},
        {R"("kind":"decision","id":"receipt-8")", "none"}, {R"("kind":"topic","id":"t")", "none"}};
    for (const auto& [keys, wanted] : rows) {
        const auto entry = readJSON(
            "{" + keys + R"(,"title":"x"})", [](const JSONValue& root) { return FoundEntry::decode(root); });
        EXPECT_EQ(entry.cardId().value_or("none"), wanted) << keys;
    }
}

} // namespace
} // namespace kelvadrome::test
