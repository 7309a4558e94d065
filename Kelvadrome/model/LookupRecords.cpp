#include "Kelvadrome/model/LookupRecords.h"

#include "Kelvadrome/model/PressedAnswer.h"
#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/ISO8601.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

namespace kelvadrome {

namespace {

/// An answer as one text; a batch gives a line a question.
std::optional<std::string> answerIn(const JSONObject& object, std::string_view key) {
    const auto value = object.find(key);
    if (!value || value->isNull())
        return std::nullopt;
    if (const auto text = value->string())
        return std::string(*text);
    if (!value->isObject())
        return std::nullopt;
    std::string lines;
    for (const auto& [question, answer] : object.lenient<std::map<std::string, std::string>>(key).value_or(
             std::map<std::string, std::string>()))
        lines += (lines.empty() ? "" : "\n") + question + ": " + answer;
    return lines;
}

FoundEntry::Kind kindOf(const std::string& kind) {
    using Kind = FoundEntry::Kind;
    return kind == "topic" ? Kind::topic : kind == "decision" ? Kind::decision : Kind::question;
}

/// The midnight that begins a day such as "2026-01-31", `later` days on; absent for what is no day.
std::optional<WallTime> midnight(const std::string& day, int later) {
    std::tm date{};
    const char* const rest = ::strptime(day.c_str(), "%Y-%m-%d", &date);
    if (!rest || *rest != '\0')
        return std::nullopt;
    date.tm_mday += later;
    date.tm_isdst = -1;
    return wallTime(static_cast<double>(::mktime(&date)));
}

} // namespace

ReceiptEntry::Outcome ReceiptEntry::outcome() const {
    static constexpr std::array<std::string_view, 3> arrived = {
        "answer.typed", "answer.handed", "answer.kept"};
    static constexpr std::array<std::string_view, 6> failed = {"answer.refused", "answer.failed",
        "answer.expired", "answer.unfinished", "answer.not_the_user", "card.agent_gone"};
    if (std::ranges::find(arrived, action) != arrived.end())
        return Outcome::arrived;
    return std::ranges::find(failed, action) != failed.end() ? Outcome::failed : Outcome::neutral;
}

std::string ReceiptEntry::words() const {
    if (answer && title)
        return inQuotes(*answer) + " to " + InboxLogic::agentName(agent) + ": " + *title;
    const auto told = line.substr(0, line.find(" Undo within "));
    std::string quoted; // the daemon's quotes are straight ones
    bool open = false;
    for (const char c : told) {
        if (c != '"')
            quoted += c;
        else
            quoted += std::exchange(open, !open) ? "”" : "“";
    }
    return quoted;
}

std::string ReceiptEntry::byWhom() const {
    if (!by)
        return {};
    if (*by == "agent")
        return "by the agent";
    return *by == "browser" ? "by you, in a browser" : "by you, in kelvadrome";
}

ReceiptEntry ReceiptEntry::decode(const JSONValue& value) {
    const auto object = value.object();
    return {.id = object.required<std::string>("event_id"),
        .action = object.required<std::string>("action"),
        .line = object.required<std::string>("line"),
        .agent = object.lenient<std::string>("agent"),
        .by = object.lenient<std::string>("by"),
        .card = object.lenient<std::string>("card_id"),
        .title = object.lenient<std::string>("title"),
        .answer = answerIn(object, "answer"),
        .time = object.required<std::string>("ts")};
}

ReceiptFilter ReceiptFilter::parse(std::string_view typed) {
    ReceiptFilter filter;
    const std::pair<std::string_view, std::optional<std::string> ReceiptFilter::*> fields[] = {
        {"agent:", &ReceiptFilter::agent}, {"from:", &ReceiptFilter::from}, {"to:", &ReceiptFilter::to}};
    for (const auto word : Text::split(typed, ' ', Text::EmptyPieces::drop)) {
        const auto field =
            std::ranges::find_if(fields, [&](const auto& entry) { return word.starts_with(entry.first); });
        if (field == std::end(fields)) {
            filter.words += (filter.words.empty() ? "" : " ") + std::string(word);
            continue;
        }
        const auto given = word.substr(field->first.size());
        const bool isDay = field->second != &ReceiptFilter::agent;
        if (!given.empty() &&
            (!isDay || midnight(std::string(given), 0))) // a day that is half typed isn't one
            filter.*(field->second) = std::string(given);
    }
    return filter;
}

boost::json::object ReceiptFilter::request(std::int64_t limit) const {
    boost::json::object body{{"limit", limit}};
    if (!words.empty())
        body.emplace("text", words);
    if (agent)
        body.emplace("agent", *agent);
    if (from)
        body.emplace("since", formatISO8601(*midnight(*from, 0)));
    if (to)
        body.emplace("until", formatISO8601(*midnight(*to, 1)));
    return body;
}

std::optional<std::string> FoundEntry::cardId() const {
    if (kind == Kind::topic || card)
        return card;
    return id.starts_with("receipt-") ? std::nullopt : std::optional(id);
}

FoundEntry FoundEntry::of(const SearchHit& hit) {
    return {.kind = kindOf(hit.kind), .id = hit.id, .title = hit.title, .snippet = hit.snippet};
}

FoundEntry FoundEntry::decode(const JSONValue& value) {
    const auto object = value.object();
    auto closedAt = object.lenient<std::string>("closed_at");
    return {.kind = kindOf(object.required<std::string>("kind")),
        .id = object.required<std::string>("id"),
        .title = object.required<std::string>("title"),
        .snippet = object.lenient<std::string>("snippet").value_or(""),
        .card = object.lenient<std::string>("card"),
        .answer = answerIn(object, "answer"),
        .closedAt = std::move(closedAt)};
}

CardRecord CardRecord::decode(const JSONValue& value) {
    const auto object = value.object();
    return {.id = object.required<std::string>("id"),
        .title = object.required<std::string>("title"),
        .body = object.lenient<std::string>("body").value_or(""),
        .agent = object.lenient<std::string>("agent"),
        .options = object.lenient<std::vector<std::string>>("options").value_or(std::vector<std::string>()),
        .answer = answerIn(object, "answer"),
        .outcome = object.lenient<std::string>("outcome"),
        .openedAt = object.lenient<std::string>("opened_at").value_or(""),
        .closedAt = object.lenient<std::string>("closed_at")};
}

std::string CardRecord::ending() const {
    if (!outcome)
        return "The question is open.";
    if (*outcome == "answered")
        return answer ? "Answered " + (answer->contains('\n') ? "\n" + *answer : inQuotes(*answer))
                      : "Answered";
    if (*outcome == "withdrawn")
        return "Taken back by the agent";
    if (*outcome == "dismissed")
        return "Dismissed without an answer";
    return *outcome == "went_on" ? "The agent went on" : "Closed";
}

} // namespace kelvadrome
