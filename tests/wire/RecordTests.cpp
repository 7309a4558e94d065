#include "KelvadromeKit/wire/AgentsStatus.h"
#include "KelvadromeKit/wire/Card.h"
#include "KelvadromeKit/wire/Envelope.h"
#include "KelvadromeKit/wire/Records.h"

#include "tests/wire/Said.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;
namespace json = boost::json;

namespace {

/// A field is optional unless named here: a required one may not be missing, a lenient one is taken for
/// missing when its type is wrong.
struct Shape {
    std::string full; // every key with a value of its type
    std::set<std::string> required;
    std::set<std::string> lenient;
    void (*decode)(std::string_view);
};

template <class T>
void decodeAs(std::string_view text) {
    decodeJSON<T>(text);
}

const std::string fullCard =
    R"({"id":"c","version":3,"kind":"k","risk":"high","state":"held","topic":"t","agent":"a","session_id":"s",
        "stop_type":"p","title":"T","body":"b","options":["x","y"],"default":"x","blocking":false,
        "rows":[{"question_id":"q","text":"t","agent_state":"w"}],"opened_at":"o","held_until":"h",
        "refs":{"a":"b"},"snoozed_until":"z"})";
const std::string fullSession = R"({"agent":"a","session_id":"s","label":"l","status":"w","topic":"t",
        "kind":"k","doing":"d","topic_title":"T","folder":"/f","pane":"%1"})";
const std::string fullReceipt = R"({"event_id":"e","action":"a","line":"l","topic":"t","ts":"s"})";

const Shape shapes[] = {
    {fullCard, {"id", "version", "kind", "title", "opened_at"}, {"snoozed_until"}, decodeAs<Card>},
    {R"({"question_id":"q","text":"t","default":"d","agent_state":"w"})",
        {"question_id", "text", "agent_state"}, {}, decodeAs<BatchRow>},
    {R"({"name":"n","version":"v","pid":5,"home":"h","watermark":"w","uptime_s":1.5,"kd":"kd"})", {},
        {"watermark", "kd"}, decodeAs<Health>},
    {R"({"id":"i","title":"t","scope":"s","open_cards":2})", {"id"}, {"open_cards"}, decodeAs<BoardRow>},
    {fullReceipt, {"event_id", "action", "line", "ts"}, {}, decodeAs<Receipt>},
    {R"({"sessions":[],"locks":[],"autopilot":[]})", {}, {"sessions", "locks", "autopilot"},
        decodeAs<AgentsStatus>},
    {fullSession, {"agent", "session_id", "status"}, {"folder", "pane"}, decodeAs<AgentsStatus::Session>},
    {R"({"resource":"r","holder":{"handoff":"h"},"queue":2})", {"resource"}, {"queue"},
        decodeAs<AgentsStatus::Lock>},
    {R"({"completed":true,"agents":[{"id":"i"}]})", {}, {}, decodeAs<OnboardingStatus>},
};

TEST(Records, everyFieldKeepsItsRuleForMissingNullAndWrongValues) {
    for (const auto& shape : shapes) {
        const auto full = json::parse(shape.full).as_object();
        const auto problem = [&](const json::object& object) {
            const auto text = json::serialize(object);
            return said([&] { shape.decode(text); });
        };
        EXPECT_EQ(problem(full), "") << shape.full;
        for (const auto& [name, right] : full) {
            const std::string key = name;
            const auto missing = shape.required.contains(key) ? key + " is missing" : "";
            auto object = full;
            object[key] = nullptr;
            EXPECT_EQ(problem(object), missing) << shape.full;
            object.erase(key);
            EXPECT_EQ(problem(object), missing) << shape.full;
            const bool isText = right.is_string();
            for (const auto& wrong : {isText ? json::value(1) : json::value("1"), json::value({5})}) {
                object[key] = wrong;
                EXPECT_EQ(
                    problem(object).starts_with(key + (wrong.is_array() && right.is_array() ? "[" : " ")),
                    !shape.lenient.contains(key))
                    << shape.full << " " << key << " " << wrong << problem(object);
            }
        }
        EXPECT_EQ(said([&] { shape.decode("[]"); }), "is not an object") << shape.full;
    }
}

TEST(Records, aFullCardKeepsEveryValueAndASmallOneItsDefaults) {
    Card full{"c", 3, "k", "high", "held", "t", "a", "s", "p", "T", "b", {"x", "y"}, "x", false,
        std::vector<BatchRow>{{"q", "t", {}, "w"}}, "o", "h", std::map<std::string, std::string>{{"a", "b"}}};
    full.snoozedUntil = "z";
    EXPECT_EQ(decodeJSON<Card>(fullCard), full);
    Card small;
    small.id = "c", small.version = 1, small.kind = "k", small.title = "T", small.openedAt = "o";
    EXPECT_EQ(
        decodeJSON<Card>(R"({"opened_at":"o","title":"T","kind":"k","version":1,"id":"c","blocking":null})"),
        small);
    EXPECT_TRUE(small.blocking && small.risk == "low" && small.state == "open" && small.answerable);
    const std::string start = R"({"opened_at":"o","title":"T","kind":"k","version":1,"id":"c",)";
    small.deliveryNote = "A shell sits between.", small.answerable = false, small.maybeTyped = true;
    EXPECT_EQ(
        decodeJSON<Card>(
            start + R"("delivery_note":"A shell sits between.","answerable":false,"maybe_typed":true})"),
        small);
    small.deliveryNote.reset(), small.answerable = true, small.maybeTyped = false;
    EXPECT_EQ(decodeJSON<Card>(start + R"("delivery_note":1,"answerable":"no"})"), small) << "of other types";
}

TEST(Records, otherRecordsReadTheirOwnKeys) {
    EXPECT_EQ(decodeJSON<BoardRow>(R"({"id":"i","open_cards":"3"})"), (BoardRow{"i", "i", {}, 0}));
    const auto status = decodeJSON<AgentsStatus>(R"({
        "sessions":[{"agent":"a","session_id":"s","status":"w","doing":"tests"},{"agent":"a","status":"w"}],
        "locks":[{"resource":"r","holder":{"label":"l"}}],
        "autopilot":[{"action_class":"git"}]})");
    EXPECT_TRUE(status.sessions.empty()) << "one that doesn't decode empties its own array only";
    EXPECT_EQ(status.locks, (std::vector{AgentsStatus::Lock{"r", AgentsStatus::Holder{{}, "l"}, 0}}));
    EXPECT_EQ(status.autopilot, (std::vector{AgentsStatus::Autopilot{"*", "git", "L0", {}, {}, false}}));
}

TEST(Records, aWatermarkAndAQueueAreTakenHoweverTheyAreSent) {
    const std::pair<std::string, std::optional<std::string>> watermarks[] = {
        {"12.9", "12"}, {"\"w-1\"", "w-1"}, {"true", {}}, {"1e300", {}}};
    for (const auto& [sent, read] : watermarks)
        EXPECT_EQ(decodeJSON<Health>("{\"watermark\":" + sent + "}").watermark, read) << sent;
    const std::pair<std::string, std::int64_t> queues[] = {{"2", 2}, {"[{},5]", 2}, {"{}", 0}, {"1.5", 0}};
    for (const auto& [sent, length] : queues) {
        const auto lock = decodeJSON<AgentsStatus::Lock>("{\"resource\":\"r\",\"queue\":" + sent + "}");
        EXPECT_EQ(lock.queue, length) << sent;
    }
}

struct Named {
    std::string name;

    static Named decode(const JSONValue& value) { return {value.object().required<std::string>("name")}; }
};

/// What decoding gives: the name, "code: message (status)", or the decoder's words.
std::string outcome(std::int64_t status, const std::string& body) {
    try {
        return Envelope::decode<Named>({status, {}, body}).name;
    } catch (const DaemonError& error) {
        return std::string(error.what()) + " (" + std::to_string(error.status()) + ")";
    } catch (const DecodingError& error) {
        return error.path() + "? " + error.problem().substr(0, 17);
    }
}

TEST(Envelope, aReplyIsARecordWhatTheDaemonSaidOrADecodingError) {
    struct Row {
        std::int64_t status;
        std::string body;
        std::string expected;
    };
    const std::string error = R"("error":{"code":"busy","message":"later"})";
    const Row rows[] = {
        {299, R"({"data":{"name":"a"},"ok":true,"more":[1]})", "a"},
        {200, "{\"ok\":true,\"data\":{\"name\":\"a\"}," + error + "}", "a"},
        {500, "{\"ok\":false," + error + "}", "busy: later (500)"},
        {404, R"({"ok":false,"error":null})", "internal: error (404)"},
        {200, R"({"ok":true,"data":null})", "internal: empty answer (200)"},
        {200, "{\"ok\":true," + error + "}", "busy: later (200)"},
        {404, "", "not_found: HTTP 404 (404)"},
        {302, R"({"ok":true,"data":{"name":"a"}})", "internal: HTTP 302 (302)"},
        {502, R"({"ok":false,"error":{"code":"busy"}})", "internal: HTTP 502 (502)"},
        {200, R"({"ok":true,"data":{"name":5}})", "data.name? is not a string"},
        {200, R"({"ok":true,"data":{"name":"a"},"error":{"code":"busy"}})", "error.message? is missing"},
        {200, R"({"data":{"name":"a"}})", "ok? is missing"},
        {204, "", "? is not valid JSON"},
        {200, "{\"ok\":true,\"data\":{\"name\":\"\xFF\"}}", "? is not valid JSON"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome(row.status, row.body), row.expected) << row.body;
    for (const std::string data : {"[1]", "5", "false"}) // what nobody reads may be anything
        EXPECT_NO_THROW(Envelope::decode<AnyDecodable>({200, {}, "{\"ok\":true,\"data\":" + data + "}"}));
}

} // namespace
