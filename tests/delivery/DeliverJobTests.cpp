#include "KelvadromeKit/support/Text.h"

#include "tests/delivery/Jobs.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

namespace {

const std::string required =
    R"("id":"j1","type":"answer","agent":"claude","host":"tmux","presence":"tag","expires_at":"later")";

std::string claim(const std::string& step) {
    return R"({"jobs":[{)" + required + R"(,"steps":[)" + step + "]}]}";
}

} // namespace

TEST(DeliverJob, allOfAJobIsRead) {
    const auto job = decodeJSON<DeliverJob>(R"({"id":"j1","type":"answer","card_id":"c1","agent":"claude",
        "session_id":"s1","pid":501,"pgid":500,"tty":"ttys004","host":"tmux","host_ref":"%3",
        "steps":[{"kind":"escape","key":"x"},{"kind":"key","key":"1"},{"kind":"text","text":"go"},
                 {"kind":"nav","key":"enter"}],
        "codex_thread":"t1","open":{"cwd":"/w","argv":["claude"],"prompt":"hi"},
        "screen":{"profile":"claude_trust","want":"trust","folder":"/w"},
        "presence":"tag","expires_at":"1970-01-01T00:00:09.5Z","later_addition":1})");
    DeliverJob expected;
    expected.id = "j1";
    expected.type = "answer";
    expected.cardId = "c1";
    expected.agent = "claude";
    expected.sessionId = "s1";
    expected.pid = 501;
    expected.pgid = 500;
    expected.tty = "ttys004";
    expected.host = "tmux";
    expected.hostRef = "%3";
    expected.steps = {
        DeliverStep::escape(), DeliverStep::key("1"), DeliverStep::text("go"), DeliverStep::nav("enter")};
    expected.codexThread = "t1";
    expected.open = DeliverJob::Open{"/w", {"claude"}, "hi"};
    expected.screen = DeliverJob::Screen{"claude_trust", "trust", "/w"};
    expected.presence = "tag";
    expected.expiresAt = "1970-01-01T00:00:09.5Z";
    EXPECT_EQ(job, expected);
    EXPECT_EQ(job.expiry(), wallTime(9.5));
}

TEST(DeliverJob, whatMayBeAbsentMayBeNull) {
    const auto bare = decodeJSON<DeliverJob>("{" + required + "}");
    const auto nulls = decodeJSON<DeliverJob>(
        "{" + required +
        R"(,"card_id":null,"session_id":null,"pid":null,"pgid":null,"tty":null,"host_ref":null,"steps":null,
            "codex_thread":null,"open":null,"screen":null})");
    EXPECT_EQ(bare, nulls);
    EXPECT_FALSE(bare.pid);
    EXPECT_FALSE(bare.expiry());
    EXPECT_TRUE(decodeJSON<DeliverClaimOut>(R"({"jobs":[]})").jobs.empty());
}

TEST(DeliverJob, oneBadPieceFailsTheWholeClaim) {
    const struct {
        std::string json, path, problem;
    } rows[] = {
        {claim(R"({"kind":"nav","key":"left"})"), "jobs[0].steps[0].key", "unknown nav key"},
        {claim(R"({"kind":"key","key":"1"},{"kind":"click"})"), "jobs[0].steps[1].kind", "unknown step"},
        {claim(R"({"kind":"key"})"), "jobs[0].steps[0].key", "is missing"},
        {claim(R"({"kind":"text","key":"1"})"), "jobs[0].steps[0].text", "is missing"},
        {claim(R"({"key":"1"})"), "jobs[0].steps[0].kind", "is missing"},
        {claim(R"({"kind":"key","key":1})"), "jobs[0].steps[0].key", "is not a string"},
        {R"({"jobs":[{"id":"j1","type":"t","agent":"a","host":"h","presence":"p"}]})", "jobs[0].expires_at",
            "is missing"},
        {"{}", "jobs", "is missing"},
    };
    for (const auto& row : rows) {
        try {
            decodeJSON<DeliverClaimOut>(row.json);
            ADD_FAILURE() << "decoded: " << row.json;
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.path(), row.path);
            EXPECT_EQ(error.problem(), row.problem);
        }
    }
}

TEST(JobOutcome, aReasonIsCutToItsFirst200CharactersAndLeftOutWhenAbsent) {
    EXPECT_EQ(JobOutcome::done("codex_queue").wire(),
        (boost::json::object{{"outcome", "done"}, {"path", "codex_queue"}}));
    EXPECT_EQ(JobOutcome::refused("gone").wire(),
        (boost::json::object{{"outcome", "refused"}, {"path", "host"}, {"reason", "gone"}}));
    std::string longReason;
    for (int i = 0; i < 500; ++i)
        longReason += "e\u0301";
    const auto cut = JobOutcome::failed(longReason).wire();
    EXPECT_EQ(cut.at("outcome"), "failed");
    EXPECT_EQ(cut.at("reason").as_string(), longReason.substr(0, 200 * 3));
}

TEST(CrewLabelList, theSwitchMayBeLeftOut) {
    const auto list = decodeJSON<CrewLabelList>(
        R"({"sessions":[{"key":"k","host":"iterm2","tty":"ttys1","callsign":null,"status":"live"}]})");
    ASSERT_EQ(list.sessions.size(), 1u);
    EXPECT_EQ(list.sessions[0], (CrewLabelRow{"k", "iterm2", "ttys1", std::nullopt, "live"}));
    EXPECT_FALSE(list.crewLabels);
    EXPECT_EQ(decodeJSON<CrewLabelList>(R"({"sessions":[],"crew_labels":false})").crewLabels, false);
    const auto reply = decodeJSON<DeliverReportOut>(R"({"proceed":true})");
    EXPECT_EQ(reply.proceed, true);
    EXPECT_FALSE(reply.reason);
}
