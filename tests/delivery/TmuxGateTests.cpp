#include "KelvadromeKit/delivery/BoundedRunner.h"
#include "KelvadromeKit/delivery/TmuxGate.h"
#include "KelvadromeKit/delivery/TypedEcho.h"

#include "tests/delivery/LiveExecutorFixture.h"

namespace kelvadrome::test {
namespace {

/// An agent in which nothing is amiss until a test says so.
class SomeAgent final : public AgentWatch {
public:
    std::optional<std::string> no;
    std::optional<std::string> afterwards;
    bool own = true;
    bool took = true;
    std::optional<TmuxServer> server = TmuxServer{"/tmp/tmux-1000/work", 77};

    Task<std::optional<std::string>> psLine() override { co_return alive; }
    std::optional<std::string> refusalNow() override { return no; }
    Task<std::optional<std::string>> doubt(bool) override { co_return afterwards; }
    Task<bool> hasRead() override { co_return true; }
    Task<bool> tookInput() override { co_return took; }
    Task<std::optional<TmuxServer>> tmuxServer() override { co_return server; }
    Task<bool> isOwnSocket(std::string) override { co_return own; }
};

class TmuxGateTest : public LiveExecutorTest {
protected:
    TmuxGateTest() {
        runner->on("capture-pane", says("> \n"));
        runner->on(looking, says(look()));
        runner->on("if-shell", says("ok\n"));
    }

    static std::string look(const std::string& flags = "0 0 0 0", const std::string& typed = "/",
        const std::string& command = "claude") {
        return fmt::format("1000 /dev/ttys004 501 {} 900 77 {} {}\n", flags, typed, command);
    }
    JobOutcome deliver(DeliverJob job) {
        auto executor = live();
        executor.runner = std::make_shared<TmuxGate>(job, runner, agent, clock);
        return paced(executor.perform(job, presenceTags, clock->now(), start()));
    }
    JobOutcome deliver(std::vector<DeliverStep> steps) { return deliver(answerJob(std::move(steps))); }

    const std::string looking = "display-message -p -t %3 #{T:";
    const std::vector<DeliverStep> key{DeliverStep::key("1")};
    const std::vector<DeliverStep> twoKeys{DeliverStep::escape(), DeliverStep::key("1")};
    std::shared_ptr<SomeAgent> agent = std::make_shared<SomeAgent>();
};

TEST_F(TmuxGateTest, anAnswerCostsFourClientsAndAllGoToTheAgentsServer) {
    runner->on("capture-pane", {says("> \n"), says("> go\n")});
    EXPECT_EQ(deliver({DeliverStep::text("go")}), JobOutcome::done());
    const std::pair<std::string, double> clients[] = {{looking, 3}, {"capture-pane -p -e -t %3 ; ", 5},
        {"capture-pane -p -e -t %3", 3}, {"capture-pane -p -e -t %3 ; ", 5}};
    ASSERT_EQ(runner->calls.size(), std::size(clients));
    for (std::size_t i = 0; i < std::size(clients); ++i) {
        const auto& call = runner->calls[i];
        EXPECT_TRUE(call.line.starts_with("tmux -S /tmp/tmux-1000/work " + clients[i].first)) << call.line;
        EXPECT_EQ(call.timeout, clients[i].second) << call.line;
    }
    EXPECT_EQ(callsAtStart, 1U) << "the go-ahead comes after the look";
    EXPECT_TRUE(runner->lines("if-shell")[0].contains(",1769851707}")) << "its limit and 2 s from now";

    agent->own = false;
    EXPECT_EQ(deliver(key), JobOutcome::refused("the agent's tmux server is gone or another user's"));
    agent->own = true;
    agent->server->pid = 78;
    EXPECT_EQ(deliver(key), JobOutcome::refused("the tmux server of this session was started anew"));
    EXPECT_EQ(runner->lines("if-shell").size(), 2U);
}

TEST_F(TmuxGateTest, whatAPaneIsStopsItBeforeTheDaemonHearsOfItAndAtEachKey) {
    const std::string gone = "the pane no longer holds this session";
    const struct {
        std::string now, words;
        bool early = true; // to be seen before any key
    } rows[] = {
        {look("1 0 0 0"), gone},
        {look("0 1 0 0"), "the pane is in a tmux mode: leave it first"},
        {look("0 0 1 0"), "the pane takes no keys"},
        {look("0 0 0 1"), "the pane shares its keys with other panes"},
        {look("0 0 0 0", "/", "bash"), "another program is in front in the pane", false},
        {look("0 0 0 0", "/1000/"), "somebody types in the pane", false},
    };
    for (const auto& [now, words, early] : rows) {
        runner->on("if-shell", says("no " + now));
        EXPECT_EQ(deliver(key), JobOutcome::refused(words));
        runner->on("if-shell", {says("ok\n"), says("no " + now)});
        EXPECT_EQ(deliver(twoKeys), JobOutcome::failed(words));
        if (!early)
            continue;
        asked = 0;
        runner->on(looking, says(now));
        runner->on("capture-pane", says(question(true)));
        for (const auto& job : {answerJob(key), trustJob()})
            EXPECT_EQ(deliver(job), JobOutcome::refused(words));
        EXPECT_EQ(asked, 0);
        runner->on("pane_current_command", says("/dev/ttys004 bash\n"));
        runner->on(looking, says(now));
        EXPECT_EQ(deliver(key), JobOutcome::refused(gone)) << "whatever else is the matter";
        runner->on("pane_current_command", says("/dev/ttys004 claude\n"));
        runner->on(looking, says(look()));
    }
}

TEST_F(TmuxGateTest, whatMayHaveGoneInIsNeverCalledRefused) {
    // tmux ends with 0 when it is told to stop. What the screen says is no word of tmux's.
    runner->on("capture-pane", says("can't find pane: %3\nok\n"));
    const std::pair<RunOutput, const char*> rows[] = {{{0, "", "", true}, "failed"},
        {{0, "", "", false}, "failed"}, {{1, "", "server exited unexpectedly", false}, "failed"},
        {{1, "", "can't find pane: %3", false}, "refused"}};
    for (const auto& [output, outcome] : rows) {
        for (const auto& step : {key[0], DeliverStep::text("go")}) {
            runner->on("if-shell", output);
            EXPECT_EQ(deliver({step}).outcome, outcome);
        }
    }
    runner->on("if-shell", says("ok\n"));
    agent->afterwards = "vim reads from the agent's terminal";
    EXPECT_EQ(deliver(key), JobOutcome::failed(*agent->afterwards));
    agent->no = "the agent is suspended";
    EXPECT_EQ(deliver(key), JobOutcome::refused("the agent is suspended"));
}

TEST_F(TmuxGateTest, returnFollowsOnlyWhereTheTextStands) {
    const auto job = answerJob({DeliverStep::text("use port 8081")});
    const auto missing = JobOutcome::failed("the text does not stand at the agent's prompt");
    const auto empty = says("> \n");
    const auto drawn = says("> use port\n 8081 \n");
    runner->on("capture-pane", {empty, drawn});
    EXPECT_EQ(deliver(job), JobOutcome::done());
    EXPECT_NE(runner->lines("if-shell").back().find("#{C:8081},"), std::string::npos);

    runner->on("capture-pane", {empty, drawn, empty}); // the next question cleared the prompt
    EXPECT_EQ(deliver(job), missing);
    runner->on("capture-pane", {empty, drawn, says("> use port\n 8081 or so\n")}); // somebody typed on
    EXPECT_EQ(
        deliver(job), JobOutcome::failed("something else stands at the agent's prompt beside the text"));
    runner->on("capture-pane", {empty, says("> \nworking")});
    EXPECT_EQ(deliver(job), missing);
    for (const auto& same : {empty, says("> 1. Yes\n  2. No\n")}) {
        runner->on("capture-pane", same);
        EXPECT_EQ(deliver(job), missing);
    }
    runner->on("capture-pane", says("ready\n")); // it reads all and draws nothing
    EXPECT_EQ(deliver(job), JobOutcome::done());
    agent->took = false;
    EXPECT_EQ(deliver(job), missing);
}

TEST_F(TmuxGateTest, aDigitGoesOutOnlyWhileItsMenuStands) {
    auto job = answerJob({DeliverStep::key("2")});
    job.menu = Lines{"Yes", "No"};
    const auto menu = says("  1. Yes\n❯ 2. No\n");
    const auto other = says("Delete?\n❯ 1. No\n  2. Yes\n");
    const auto empty = says("\n");
    const std::string gone = "the menu is no longer on the screen";
    const std::string changed = "option 2 on the screen is \"Yes\"";
    runner->on("pane_width", says("100\n"));
    const struct {
        std::vector<RunOutput> screens;
        JobOutcome outcome;
        int asked;
    } rows[] = {
        {{menu}, JobOutcome::done(), 1},
        {{empty, empty, menu}, JobOutcome::done(), 1},       // the agent is still drawing it
        {{menu, empty, other, menu}, JobOutcome::done(), 1}, // and draws it anew
        {{empty}, JobOutcome::refused(gone), 0},
        {{other}, JobOutcome::refused(changed), 0},
        {{menu, empty}, JobOutcome::refused(gone), 1},
        {{menu, other}, JobOutcome::refused(changed), 1},
    };
    for (const auto& [screens, outcome, toldToStart] : rows) {
        asked = 0;
        runner->calls.clear();
        runner->on("capture-pane -p -t %3", screens);
        EXPECT_EQ(deliver(job), outcome);
        EXPECT_EQ(asked, toldToStart);
        EXPECT_EQ(runner->lines("send-keys").size(), outcome == JobOutcome::done() ? 1U : 0U);
    }
    runner->on("capture-pane -p -t %3", menu);
    EXPECT_EQ(deliver(job), JobOutcome::done());
    EXPECT_TRUE(runner->lines("send-keys").back().contains("#{C:❯ 2? No}"));
    runner->on("pane_width", says("\n"));
    EXPECT_EQ(deliver(job), JobOutcome::refused("the pane can't be read"));
}

TEST_F(TmuxGateTest, whoTypesIsLetFinish) {
    runner->on(looking, {says(look("0 0 0 0", "/999/")), says(look("0 0 0 0", "/980/"))});
    EXPECT_EQ(deliver(key), JobOutcome::done());
    runner->on(looking, says(look("0 0 0 0", "/980/1000/")));
    EXPECT_EQ(deliver(key), JobOutcome::refused("somebody types in the pane"));
    EXPECT_EQ(asked, 1) << "the daemon hears of it when the pane is quiet";

    // A click into the pane between the look and the key, which tmux counts as typing.
    runner->on(looking, {says(look()), says(look("0 0 0 0", "/998/"))});
    runner->on("if-shell", {says("no " + look("0 0 0 0", "/998/")), says("ok\n")});
    EXPECT_EQ(deliver(key), JobOutcome::done());
    runner->on(looking, says(look()));
    runner->on("if-shell", {says("ok\n"), says("no " + look("0 0 0 0", "/998/")), says("ok\n")});
    EXPECT_EQ(deliver(twoKeys), JobOutcome::failed("somebody types in the pane"));
}

TEST_F(TmuxGateTest, aNameThatTmuxWouldReadAsMoreIsNeverPutIntoACommand) {
    for (const std::string name : {"#(touch x)", "a,b", "}claude", "it's", "$(x)", ""}) {
        runner->on(looking, says(look("0 0 0 0", "/", name)));
        EXPECT_EQ(deliver(key), JobOutcome::refused("the name of the program in front can't be compared"));
    }
    auto job = answerJob({DeliverStep::key("1")});
    job.tty = "pts/1},x";
    runner->on("display-message", says("/dev/pts/1},x claude\n"));
    EXPECT_EQ(deliver(job).outcome, "refused");
    EXPECT_EQ(runner->lines("if-shell"), Lines());
}

TEST_F(TmuxGateTest, aCommandThatNeverEndsIsLeftBehindAndTheNextOneRuns) {
    struct Hanging final : CommandRunning {
        explicit Hanging(std::shared_ptr<Clock> c) : clock(std::move(c)) {}
        Task<RunOutput> run(RunCommand, double) override {
            co_await clock->sleep(2'000);
            co_return RunOutput{0, "late", "", false};
        }
        std::shared_ptr<Clock> clock;
    };
    BoundedRunner bounded(std::make_shared<Hanging>(clock), clock);
    const auto began = clock->uptime();
    const auto output = runPaced(loop, *clock, bounded.run({"/bin/x", {}, 0}, 5));
    EXPECT_TRUE(output.timedOut);
    EXPECT_FALSE(output.succeeded());
    EXPECT_EQ(clock->uptime() - began, 5 + BoundedRunner::grace);
}

TEST(TypedEcho, aTextStandsHoweverTheAgentFramesIt) {
    const auto span = [](const std::string& text, const std::string& before, const std::string& after) {
        const auto ending = TypedEcho::find(text, before, after);
        return ending ? ending->span : "nowhere";
    };
    const std::string box = "╭─────────╮\n│ >       │\n╰─────────╯\n";
    EXPECT_EQ(
        span("use port 8080", box, "╭─────────╮\n│ > use p │\n│ ort 808 │\n│ 0       │\n╰─────────╯\n"), "0");
    EXPECT_EQ(span("use port 8080", box, box), "nowhere");
    EXPECT_EQ(span("use port 8080", box, "│ > use port 808 │"), "nowhere");
    EXPECT_EQ(span("use port 8080", "> \n", "❯ use port 8080. ▌   ctrl+e\n? for help 8080"), "use port 8080");
    EXPECT_EQ(span("日本語。", "> ", "> 日本\n語。"), "語");
    EXPECT_EQ(span("🎉", "> \n|", "> 🎉\n/"), "🎉");
    EXPECT_EQ(span("🎉", "> \n|", "> \n/"), "nowhere");

    // What stood there before, or goes on by itself, is no echo.
    EXPECT_EQ(span("yes", "yes?\n> ", "yes?\n> \nworking"), "nowhere");
    EXPECT_EQ(span("yes", "yes?\n> ", "yes?\n> yes"), "yes");
    EXPECT_EQ(span("2", "> \n(11s)", "> \n(12s)"), "nowhere");
    EXPECT_EQ(span("2", "> \n(12s)", "> 2\n(13s)"), "2");
    EXPECT_EQ(span("go on", "> go on\nwell\n> ", "well\n> go on\n"), "nowhere") << "the same line scrolled";
    EXPECT_EQ(span("yes, do it", "> \x1b[2myes, do it\x1b[0m", "> yes, do it"), "yes, do it")
        << "a suggestion";

    const auto pasted = TypedEcho::find(std::string(900, 'a'), "> ", "> [Pasted text #1]");
    EXPECT_EQ(pasted->span, "[Pasted text #1]");
    EXPECT_FALSE(TypedEcho::find(std::string(900, 'a'), "> [Pasted text #1]", "> [Pasted text #1]"));
    EXPECT_TRUE(TypedEcho::find("yes", "❯ rm the old ", "❯ rm the old yes")->drafted);
    EXPECT_FALSE(TypedEcho::find("yes", "❯ Try \"edit\"", "❯ yes")->drafted);

    for (const auto* const screen :
        {"Go on?\n ❯ 1. Yes\n   2. No\n", "│ › Yes │", "ready\n> \n", "│ >     │", ">"})
        EXPECT_TRUE(TypedEcho::showsMark(screen)) << screen;
    EXPECT_FALSE(TypedEcho::showsMark("ready\na > b\n-> x"));
}

} // namespace
} // namespace kelvadrome::test
