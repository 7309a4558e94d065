#include "KelvadromeKit/delivery/DeliverCheck.h"
#include "KelvadromeKit/delivery/Presence.h"
#include "KelvadromeKit/support/Text.h"

#include "tests/delivery/Jobs.h"

#include <gtest/gtest.h>

#include <functional>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

/// What a check is asked; a row of a table breaks one thing in it.
struct Case {
    DeliverJob job;
    std::optional<ProcFacts> facts = claudeFacts();
    std::set<std::string> tags = presenceTags;
    WallTime now = beforeExpiry;

    std::string verdict() const { return DeliverCheck::refusal(job, facts, tags, now).value_or("passes"); }
};

struct Row {
    const char* what;
    std::function<void(Case&)> change;
    const char* verdict;
};

void expectRows(const Case& start, const std::vector<Row>& rows) {
    EXPECT_EQ(start.verdict(), "passes");
    for (const auto& row : rows) {
        auto changed = start;
        row.change(changed);
        EXPECT_EQ(changed.verdict(), row.verdict) << row.what;
    }
}

Case openCase() {
    Case open{answerJob()};
    open.job.type = "open";
    open.job.open = DeliverJob::Open{"/w", {"claude"}, "go on"};
    return open;
}

Case peekCase() {
    Case peek{trustJob()};
    peek.job.type = "peek";
    peek.job.steps.reset();
    return peek;
}

Case queueCase() {
    Case queue{answerJob({DeliverStep::text("go")})};
    queue.job.agent = "codex";
    queue.job.host = "unknown";
    queue.job.codexThread = "t1";
    queue.job.tty.reset();
    queue.facts = ProcFacts{501, 7, 0, std::nullopt, "/opt/codex"};
    return queue;
}

std::function<void(Case&)> withSteps(std::vector<DeliverStep> steps) {
    return [steps](Case& c) { c.job.steps = steps; };
}

const char* const noKeys = "no keys to type";
const char* const textRefused = "text refused";
const char* const badKey = "bad key";
const char* const ended = "the agent process ended";
const char* const moved = "the session moved to another terminal";
const char* const background = "the agent is not in the foreground of its terminal";

} // namespace

TEST(DeliverCheck, everyJobMustBeAliveAndPressedHere) {
    const auto* const notPressed = "the answer was not pressed in this app";
    for (const auto& start : {Case{answerJob()}, Case{trustJob()}, openCase(), peekCase(), queueCase()}) {
        expectRows(start, {
                              {"expired", [](Case& c) { c.now = wallTime(1769851800.5); }, "the job expired"},
                              {"just in time", [](Case& c) { c.now = wallTime(1769851800); }, "passes"},
                              {"other page", [](Case& c) { c.job.presence = "Tag"; }, notPressed},
                              {"no page", [](Case& c) { c.tags.clear(); }, notPressed},
                          });
    }
}

TEST(DeliverCheck, anOpenJobIsJudgedByItsPromptAlone) {
    expectRows(openCase(),
        {
            {"nothing", [](Case& c) { c.job.open.reset(); }, "nothing to open"},
            {"no prompt", [](Case& c) { c.job.open->prompt.reset(); }, "passes"},
            {"a command", [](Case& c) { c.job.open->prompt = "!ls"; }, textRefused},
            {"no process", [](Case& c) { c.facts.reset(), c.job.pid.reset(), c.job.steps.reset(); },
                "passes"},
        });
}

TEST(DeliverCheck, aPeekNeedsAQuestionItKnows) {
    const auto* const nothing = "nothing to read";
    expectRows(peekCase(), {
                               {"no screen", [](Case& c) { c.job.screen.reset(); }, nothing},
                               {"profile", [](Case& c) { c.job.screen->profile = "claude_login"; }, nothing},
                               {"folder", [](Case& c) { c.job.screen->folder.reset(); }, nothing},
                               {"agent", [](Case& c) { c.job.agent = "codex"; }, nothing},
                           });
}

TEST(DeliverCheck, theKeysOfAnAnswerAreAllKnownAndItsTextIsAsTheUserSawIt) {
    using S = DeliverStep;
    const std::string limit(4000, 'x');
    expectRows(Case{answerJob()},
        {
            {"absent", [](Case& c) { c.job.steps.reset(); }, noKeys},
            {"empty", withSteps({}), noKeys},
            {"four", withSteps({4, S::escape()}), "passes"},
            {"five", withSteps({5, S::escape()}), noKeys},
            {"y", withSteps({S::key("y")}), "passes"},
            {"0", withSteps({S::key("0")}), badKey},
            {"decomposed", withSteps({S::text("cafe\u0301")}), "passes"},
            {"too long", withSteps({S::text(limit + "x")}), textRefused},
            {"doubled blank", withSteps({S::text("a  b")}), textRefused},
            {"slash command", withSteps({S::text("/clear")}), textRefused},
            {"nav without a question", withSteps({S::nav("down")}), badKey},
            {"a later step", withSteps({S::escape(), S::key("1"), S::text("/clear")}), textRefused},
        });
}

TEST(DeliverCheck, aScreenAnswerNamesWhatItWantsAndWhere) {
    expectRows(
        Case{trustJob()}, {
                              {"exit", [](Case& c) { c.job.screen->want = "exit"; }, "passes"},
                              {"profile", [](Case& c) { c.job.screen->profile = "other"; }, badKey},
                              {"want", [](Case& c) { c.job.screen->want = "Trust"; }, badKey},
                              {"no want", [](Case& c) { c.job.screen->want.reset(); }, badKey},
                              {"folder", [](Case& c) { c.job.screen->folder.reset(); }, badKey},
                              {"steps count all the same", [](Case& c) { c.job.steps->clear(); }, noKeys},
                          });
}

TEST(DeliverCheck, theQueueOfCodexNeedsItsProcessAndNoTerminal) {
    const auto* const gone = "the Codex process ended";
    expectRows(queueCase(),
        {
            {"no pid", [](Case& c) { c.job.pid.reset(); }, "no Codex process to queue for"},
            {"no process", [](Case& c) { c.facts.reset(); }, gone},
            {"other program", [](Case& c) { c.facts->comm = "/opt/codex/node"; }, gone},
            {"no keys", [](Case& c) { c.job.steps->clear(); }, noKeys},
            {"on a host it is typed", [](Case& c) { c.job.host = "tmux"; }, "no session to type into"},
        });
}

TEST(DeliverCheck, theTerminalMustStillHoldWhatItHeld) {
    const auto* const notClaude = "the process on this terminal is not claude";
    const std::vector<Row> rows{
        {"no pid", [](Case& c) { c.job.pid.reset(); }, "no session to type into"},
        {"no tty", [](Case& c) { c.job.tty.reset(); }, "no session to type into"},
        {"no process", [](Case& c) { c.facts.reset(); }, ended},
        {"recycled pid", [](Case& c) { c.facts->pid = 502; }, ended},
        {"other program", [](Case& c) { c.facts->comm = "/bin/zsh"; }, notClaude},
        {"a name that ends alike", [](Case& c) { c.facts->comm = "notclaude"; }, notClaude},
        {"a folder of that name", [](Case& c) { c.facts->comm = "/opt/claude/node"; }, notClaude},
        {"a blank in the folder", [](Case& c) { c.facts->comm = "/My App/bin/claude"; }, "passes"},
        {"no terminal", [](Case& c) { c.facts->tty.reset(); }, moved},
        {"other terminal", [](Case& c) { c.facts->tty = "ttys005"; }, moved},
        {"group", [](Case& c) { c.facts->pgid = c.facts->tpgid = 500; }, "the agent process changed"},
        {"any group", [](Case& c) { c.job.pgid.reset(), c.facts->pgid = c.facts->tpgid = 500; }, "passes"},
        {"shell in front", [](Case& c) { c.facts->tpgid = 400; }, background},
    };
    expectRows(Case{answerJob()}, rows);
    expectRows(Case{trustJob()}, rows);
    expectRows(peekCase(), rows);
}

TEST(DeliverCheck, focusNeedsTheSessionButNotTheForegroundAndSoDoesAnyOtherType) {
    Case focus{answerJob()};
    focus.job.steps.reset();
    focus.facts->pgid = 9;
    for (const auto* type : {"focus", "paste"}) {
        focus.job.type = type;
        expectRows(focus, {
                              {"no process", [](Case& c) { c.facts.reset(); }, ended},
                              {"terminal", [](Case& c) { c.facts->tty = "ttys005"; }, moved},
                          });
    }
    focus.job.pid.reset();
    EXPECT_EQ(focus.verdict(), "no session to type into");
    focus.job.type = "focus";
    focus.facts.reset();
    EXPECT_EQ(focus.verdict(), "passes");
}

TEST(ProcFacts, theFirstWholeLineIsTheProcess) {
    using F = ProcFacts;
    const struct {
        const char* output;
        std::optional<F> facts;
    } rows[] = {
        {"  501   502   503 ttys012  /My App/bin/claude\n",
            F{501, 502, 503, "ttys012", "/My App/bin/claude"}},
        {"1 2 -1 ?? launchd", F{1, 2, -1, std::nullopt, "launchd"}},
        {"\n\nPID PGID TPGID TT COMM\n1 2 3 ttys1\n4 5 6 ttys2 sh\n7 8 9 ttys3 zsh\n",
            F{4, 5, 6, "ttys2", "sh"}},
        {"1 2 3x ttys1 sh", std::nullopt},
        {"1 2 99999999999999999999 ttys1 sh", std::nullopt},
        {"ps: illegal option\n", std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(F::parse(row.output), row.facts) << row.output;
}

namespace {

std::string claim(const std::string& step) {
    return R"({"jobs":[{"id":"j1","type":"answer","agent":"claude","host":"tmux","presence":"tag",)"
           R"("expires_at":"later","card_id":null,"steps":[)" +
           step + "]}]}";
}

} // namespace

TEST(DeliverJob, allOfAJobIsRead) {
    const auto job = decodeJSON<DeliverJob>(R"({"id":"j1","type":"answer","card_id":"c1","agent":"claude",
        "session_id":"s1","pid":501,"pgid":501,"tty":"ttys004","host":"tmux","host_ref":"%3",
        "steps":[{"kind":"escape","key":"x"},{"kind":"key","key":"1"},{"kind":"text","text":"go"},
                 {"kind":"nav","key":"enter"}],
        "codex_thread":"t1","open":{"cwd":"/w","argv":["claude"],"prompt":"hi"},
        "screen":{"profile":"claude_trust","want":"trust","folder":"/w"},
        "presence":"tag","expires_at":"1970-01-01T00:00:09.5Z","later_addition":1})");
    using S = DeliverStep;
    auto expected = answerJob({S::escape(), S::key("1"), S::text("go"), S::nav("enter")});
    expected.cardId = "c1", expected.sessionId = "s1", expected.codexThread = "t1";
    expected.open = DeliverJob::Open{"/w", {"claude"}, "hi"};
    expected.screen = DeliverJob::Screen{"claude_trust", "trust", "/w"};
    expected.expiresAt = "1970-01-01T00:00:09.5Z";
    EXPECT_EQ(job, expected);
    EXPECT_EQ(job.expiry(), wallTime(9.5));

    const auto bare = decodeJSON<DeliverClaimOut>(claim(R"({"kind":"escape"})")).jobs.at(0);
    EXPECT_FALSE(bare.cardId || bare.pid || bare.tty || bare.screen || bare.expiry());
}

TEST(DeliverJob, oneBadPieceFailsTheWholeClaim) {
    const struct {
        std::string json, path, problem;
    } rows[] = {
        {claim(R"({"kind":"nav","key":"left"})"), "jobs[0].steps[0].key", "unknown nav key"},
        {claim(R"({"kind":"key","key":"1"},{"kind":"click"})"), "jobs[0].steps[1].kind", "unknown step"},
        {claim(R"({"kind":"text","key":"1"})"), "jobs[0].steps[0].text", "is missing"},
        {claim(R"({"kind":"key","key":1})"), "jobs[0].steps[0].key", "is not a string"},
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

TEST(Presence, aTagIsTheStartOfTheSessionsHash) {
    EXPECT_EQ(Presence::tag("abc"), "ba7816bf8f01cfea414140de5dae2223");
}

TEST(JobOutcome, aReasonIsCutToItsFirst200CharactersAndLeftOutWhenAbsent) {
    EXPECT_EQ(JobOutcome::done("codex_queue").wire(),
        (boost::json::object{{"outcome", "done"}, {"path", "codex_queue"}}));
    EXPECT_EQ(JobOutcome::refused("gone").wire(),
        (boost::json::object{{"outcome", "refused"}, {"path", "host"}, {"reason", "gone"}}));
    const auto longReason = Text::join(std::vector<std::string>(500, "e\u0301"), "");
    EXPECT_EQ(JobOutcome::failed(longReason).wire().at("reason").as_string(), longReason.substr(0, 200 * 3));
}
