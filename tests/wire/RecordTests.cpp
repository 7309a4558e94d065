#include "KelvadromeKit/wire/AgentsStatus.h"
#include "KelvadromeKit/wire/Card.h"
#include "KelvadromeKit/wire/Records.h"

#include "tests/wire/Said.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;
namespace json = boost::json;

namespace {

/// What a missing key, null and a wrong type do: fail all three, fail the last, or nothing.
enum class Rule { required, optional, lenient };

struct Shape {
    std::string name;
    std::string full; // every key with a value of its type
    std::map<std::string, Rule> rules;
    void (*decode)(std::string_view);
};

template <class T>
void decodeAs(std::string_view text) {
    decodeJSON<T>(text);
}

using enum Rule;

const Shape shapes[] = {
    {"Card",
        R"({"id":"c","version":3,"kind":"k","risk":"high","state":"held","topic":"t","agent":"a","session_id":"s",
            "stop_type":"p","title":"T","body":"b","options":["x","y"],"default":"x","blocking":false,
            "rows":[{"question_id":"q","text":"t","agent_state":"w"}],"opened_at":"o","held_until":"h","refs":{"a":"b"}})",
        {{"id", required}, {"version", required}, {"kind", required}, {"risk", optional}, {"state", optional},
            {"topic", optional}, {"agent", optional}, {"session_id", optional}, {"stop_type", optional},
            {"title", required}, {"body", optional}, {"options", optional}, {"default", optional},
            {"blocking", optional}, {"rows", optional}, {"opened_at", required}, {"held_until", optional},
            {"refs", optional}},
        decodeAs<Card>},
    {"BatchRow", R"({"question_id":"q","text":"t","default":"d","agent_state":"w"})",
        {{"question_id", required}, {"text", required}, {"default", optional}, {"agent_state", required}},
        decodeAs<BatchRow>},
    {"Health", R"({"name":"n","version":"v","pid":5,"home":"h","watermark":"w","uptime_s":1.5})",
        {{"name", optional}, {"version", optional}, {"pid", optional}, {"home", optional},
            {"watermark", lenient}, {"uptime_s", optional}},
        decodeAs<Health>},
    {"BoardRow", R"({"id":"i","title":"t","scope":"s","open_cards":2})",
        {{"id", required}, {"title", optional}, {"scope", optional}, {"open_cards", lenient}},
        decodeAs<BoardRow>},
    {"Receipt", R"({"event_id":"e","action":"a","line":"l","topic":"t","ts":"s"})",
        {{"event_id", required}, {"action", required}, {"line", required}, {"topic", optional},
            {"ts", required}},
        decodeAs<Receipt>},
    {"AgentsStatus", R"({"sessions":[],"locks":[],"autopilot":[]})",
        {{"sessions", lenient}, {"locks", lenient}, {"autopilot", lenient}}, decodeAs<AgentsStatus>},
    {"Session",
        R"({"agent":"a","session_id":"s","label":"l","status":"w","topic":"t","kind":"k","doing":"d","topic_title":"T"})",
        {{"agent", required}, {"session_id", required}, {"label", optional}, {"status", required},
            {"topic", optional}, {"kind", optional}, {"doing", optional}, {"topic_title", optional}},
        decodeAs<AgentsStatus::Session>},
    {"Lock", R"({"resource":"r","holder":{"handoff":"h"},"queue":2})",
        {{"resource", required}, {"holder", optional}, {"queue", lenient}}, decodeAs<AgentsStatus::Lock>},
    {"Holder", R"({"handoff":"h","label":"l"})", {{"handoff", optional}, {"label", optional}},
        decodeAs<AgentsStatus::Holder>},
    {"Autopilot", R"({"scope":"s","action_class":"a","level":"L1","label":"l","mode":"m","floor":true})",
        {{"scope", optional}, {"action_class", required}, {"level", optional}, {"label", optional},
            {"mode", optional}, {"floor", optional}},
        decodeAs<AgentsStatus::Autopilot>},
    {"InboxCounts", R"({"needs_you":1,"answered_by_rules_today":2,"agents_working":3,"verified_today":4})",
        {{"needs_you", required}, {"answered_by_rules_today", required}, {"agents_working", required},
            {"verified_today", required}},
        decodeAs<InboxCounts>},
    {"InboxFeed",
        R"({"counts":{"needs_you":1,"answered_by_rules_today":2,"agents_working":3,"verified_today":4}})",
        {{"counts", optional}}, decodeAs<InboxFeed>},
    {"LoginLink", R"({"url":"u","expires_at":"e"})", {{"url", required}, {"expires_at", required}},
        decodeAs<LoginLink>},
    {"OnboardingStatus", R"({"completed":true,"agents":[{"id":"i"}]})",
        {{"completed", optional}, {"agents", optional}}, decodeAs<OnboardingStatus>},
    {"Agent", R"({"id":"i","name":"n","install":{"state":"s"}})",
        {{"id", required}, {"name", optional}, {"install", optional}}, decodeAs<OnboardingStatus::Agent>},
    {"Install", R"({"state":"s","kind":"k"})", {{"state", required}, {"kind", optional}},
        decodeAs<OnboardingStatus::Install>},
};

/// Values that a field which takes `right` doesn't take. Every array here holds strings or objects.
std::vector<json::value> wrongFor(const json::value& right) {
    std::vector<json::value> wrong;
    for (const auto* text : {"\"1\"", "true", "1", "1.5", "[]", "[5]", "{}"}) {
        auto candidate = json::parse(text);
        const bool number = right.is_number() && candidate.is_number();
        const bool takenAnyway = number && (right.is_double() || candidate.is_int64());
        const bool sameKind = candidate.kind() == right.kind() && text != std::string_view("[5]");
        // An empty object is a map without entries and a record whose fields may all be absent.
        if (!takenAnyway && !(sameKind && !number))
            wrong.push_back(std::move(candidate));
    }
    return wrong;
}

} // namespace

TEST(Records, everyFieldKeepsItsRuleForMissingNullAndWrongValues) {
    for (const auto& shape : shapes) {
        const auto full = json::parse(shape.full).as_object();
        ASSERT_EQ(full.size(), shape.rules.size()) << shape.name;
        const auto problem = [&](const json::object& object) {
            const auto text = json::serialize(object);
            return said([&] { shape.decode(text); });
        };
        EXPECT_EQ(problem(full), "") << shape.name;
        for (const auto& [key, rule] : shape.rules) {
            const auto place = shape.name + "." + key;
            auto object = full;
            object[key] = nullptr;
            EXPECT_EQ(problem(object), rule == required ? key + " is missing" : "") << place;
            object.erase(key);
            EXPECT_EQ(problem(object), rule == required ? key + " is missing" : "") << place;
            for (const auto& wrong : wrongFor(full.at(key))) {
                object[key] = wrong;
                const auto words = problem(object);
                EXPECT_EQ(words.starts_with(key), rule != lenient) << place << " " << wrong << " " << words;
            }
        }
        for (const auto* other : {"[]", "null", "5", "\"x\""}) {
            EXPECT_EQ(said([&] { shape.decode(other); }), "is not an object") << shape.name;
        }
    }
}

TEST(Records, aFullCardKeepsEveryValueAndASmallOneItsDefaults) {
    Card full{"c", 3, "k", "high", "held", "t", "a", "s", "p", "T", "b", {"x", "y"}, "x", false,
        std::vector<BatchRow>{{"q", "t", {}, "w"}}, "o", "h", std::map<std::string, std::string>{{"a", "b"}}};
    EXPECT_EQ(decodeJSON<Card>(shapes[0].full), full);
    auto wrong = json::parse(shapes[0].full).as_object();
    wrong["refs"].as_object()["b"] = 5;
    EXPECT_EQ(said([&] { decodeJSON<Card>(json::serialize(wrong)); }), "refs.b is not a string");

    Card small;
    small.id = "c", small.version = 1, small.kind = "k", small.title = "T", small.openedAt = "o";
    EXPECT_EQ(
        decodeJSON<Card>(R"({"opened_at":"o","title":"T","kind":"k","version":1,"id":"c","blocking":null})"),
        small);
    EXPECT_EQ(std::tuple(small.risk, small.state, small.body, small.blocking),
        std::tuple(std::string("low"), std::string("open"), std::string(), true));
}

TEST(Records, aWatermarkIsTextHoweverItIsSent) {
    const std::pair<std::string, std::optional<std::string>> rows[] = {{"12.9", "12"}, {"-0.5", "0"},
        {"7", "7"}, {"\"w-1\"", "w-1"}, {"\"\"", ""}, {"true", {}}, {"1e300", {}},
        {"100000000000000000000", {}}, {"[]", {}}};
    for (const auto& [sent, read] : rows) {
        EXPECT_EQ(decodeJSON<Health>("{\"watermark\":" + sent + "}").watermark, read) << sent;
    }
    EXPECT_EQ(decodeJSON<Health>("{}"), (Health{"kelvadromed", "?", 0, "", {}, {}}));
}

TEST(Records, aQueueIsItsLengthHoweverItIsSent) {
    const std::pair<std::string, std::int64_t> rows[] = {
        {"2", 2}, {"[{},5]", 2}, {"{}", 0}, {"\"2\"", 0}, {"null", 0}, {"1.5", 0}};
    for (const auto& [sent, length] : rows) {
        const auto lock = decodeJSON<AgentsStatus::Lock>("{\"resource\":\"r\",\"queue\":" + sent + "}");
        EXPECT_EQ(lock.queue, length) << sent;
    }
}

TEST(Records, anArrayOfTheStatusThatDoesNotDecodeIsEmptyByItself) {
    const auto status = decodeJSON<AgentsStatus>(R"({
        "sessions":[{"agent":"a","session_id":"s","status":"w","doing":"tests"},{"agent":"a","status":"w"}],
        "locks":[{"resource":"r","holder":{"label":"l"}}],
        "autopilot":[{"action_class":"git"}]})");
    EXPECT_TRUE(status.sessions.empty());
    ASSERT_EQ(status.locks.size(), 1u);
    EXPECT_EQ(status.locks[0], (AgentsStatus::Lock{"r", AgentsStatus::Holder{{}, "l"}, 0}));
    ASSERT_EQ(status.autopilot.size(), 1u);
    EXPECT_EQ(status.autopilot[0], (AgentsStatus::Autopilot{"*", "git", "L0", {}, {}, false}));
    EXPECT_TRUE(decodeJSON<AgentsStatus>(R"({"autopilot":[{"scope":"s"}]})").autopilot.empty());
    EXPECT_EQ(decodeJSON<AgentsStatus::Session>(shapes[6].full),
        (AgentsStatus::Session{"a", "s", "l", "w", "t", "k", "d", "T"}));
}

TEST(Records, smallRecordsReadTheirOwnKeys) {
    EXPECT_EQ(decodeJSON<BoardRow>(R"({"id":"i","open_cards":"3"})"), (BoardRow{"i", "i", {}, 0}));
    EXPECT_EQ(decodeJSON<BoardRow>(shapes[3].full), (BoardRow{"i", "t", "s", 2}));
    EXPECT_EQ(decodeJSON<Receipt>(shapes[4].full), (Receipt{"e", "a", "l", "t", "s"}));
    EXPECT_EQ(decodeJSON<InboxFeed>(shapes[11].full).counts, (InboxCounts{1, 2, 3, 4}));
    EXPECT_EQ(decodeJSON<LoginLink>(shapes[12].full), (LoginLink{"u", "e"}));
    const auto onboarding = decodeJSON<OnboardingStatus>(R"({"agents":[
        {"id":"one","install":{"state":"queued"}}, {"id":"two","name":"Two","install":{"state":"verifying"}},
        {"id":"three","install":{"state":"installed"}}, {"id":"four"}]})");
    EXPECT_EQ(onboarding.installingNames(), (std::vector<std::string>{"one", "Two"}));
}
