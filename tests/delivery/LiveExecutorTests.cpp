#include "tests/delivery/LiveExecutorFixture.h"

namespace kelvadrome::test {
namespace {

const std::vector<DeliverStep> twoSteps{DeliverStep::escape(), DeliverStep::text("-n yes")};

TEST_F(LiveExecutorTest, anAnswerIsTypedInOrderWithALookBeforeEachKeyAndAPauseAfterIt) {
    EXPECT_EQ(perform(answerJob(twoSteps)), JobOutcome::done());
    EXPECT_EQ(
        runner->lines(), (Lines{psLine, "tmux display-message -p -t %3 #{pane_tty} #{pane_current_command}",
                             psLine, "tmux send-keys -t %3 Escape", psLine,
                             "tmux send-keys -t %3 -l -- -n yes", psLine, "tmux send-keys -t %3 Enter"}));
    EXPECT_EQ(pauses, (Pauses{450, 250, 100}));
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(callsAtStart, 3U) << "the go-ahead comes last before the keys";

    healthy();
    auto typedBefore = says("");
    typedBefore.secondsSince = 0.2;
    runner->on("send-keys", typedBefore);
    EXPECT_EQ(perform(answerJob(twoSteps)), JobOutcome::done());
    EXPECT_EQ(pauses, (Pauses{250, 50})) << "each pause begins with its key";
}

TEST_F(LiveExecutorTest, aFailureAtAnyStepEndsTheAnswerThere) {
    const std::string gone = "the agent process ended";
    const std::string untaken = "the terminal did not take the keys";
    const std::vector<JobOutcome> expected{JobOutcome::refused(gone),
        JobOutcome::refused("the pane no longer holds this session"),
        JobOutcome::refused("before the first key: " + gone), JobOutcome::refused(untaken),
        JobOutcome::failed("stopped after 1 of 3 steps: " + gone), JobOutcome::failed(untaken),
        JobOutcome::failed("stopped after 2 of 3 steps: " + gone), JobOutcome::failed(untaken)};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        healthy();
        runner->failing = i;
        EXPECT_EQ(perform(answerJob(twoSteps)), expected[i]);
        EXPECT_EQ(runner->calls.size(), i + 1) << "nothing ran after the failure";
        EXPECT_EQ(asked, i > 2 ? 1 : 0);
    }
}

TEST_F(LiveExecutorTest, noCommandMayTakeLongerThanItsLimit) {
    auto open = answerJob(), focus = answerJob(), queue = answerJob({DeliverStep::text("go on")});
    focus.type = "focus";
    open.type = "open";
    open.sessionId = "s1";
    open.open = DeliverJob::Open{"/", {"claude"}, std::nullopt};
    queue.agent = "codex";
    queue.host = "unknown";
    queue.codexThread = "T1";
    using Limits = std::map<std::string, double>; // seconds
    const std::pair<DeliverJob, Limits> rows[] = {
        {answerJob(twoSteps), {{"ps", 3}, {"tmux display-message", 3}, {"tmux send-keys", 5}}},
        {trustJob(), {{"ps", 3}, {"tmux capture-pane", 5}, {"tmux send-keys", 5}}},
        {focus, {{"ps", 3}, {"tmux select-pane", 5}}}, {open, {{"ps", 3}, {"tmux new-session", 10}}},
        {queue, {{"codex queue", 15}, {"ps", 3}}}};
    for (const auto& [job, expected] : rows) {
        healthy();
        runner->on("capture-pane", says(question(true)));
        if (job.agent == "codex")
            runner->on(psLine, says("501 501 501 ?? codex\n"));
        perform(job);
        Limits limits;
        for (const auto& call : runner->calls)
            limits[call.line.substr(0, call.line.find(" -"))] = call.timeout;
        EXPECT_EQ(limits, expected) << job.type;
    }
}

TEST_F(LiveExecutorTest, aCommandThatWasStoppedMayHavePressedItsKey) {
    const RunOutput stopped{15, "", "", true};
    runner->on("send-keys", stopped);
    EXPECT_EQ(perform(answerJob()), JobOutcome::failed("the terminal did not take the keys"));
    healthy();
    runner->on("capture-pane", says(question(true)));
    runner->on("send-keys", stopped);
    EXPECT_EQ(perform(trustJob()), JobOutcome::failed("the terminal did not take the key"));
}

TEST_F(LiveExecutorTest, aDaemonThatTookItsTimeIsFollowedByANewLook) {
    whileAsking = [this] { clock->advance(1000); };
    EXPECT_EQ(perform(answerJob()), JobOutcome::done()) << "although the job has expired meanwhile";
    EXPECT_EQ(runner->calls.size(), callsAtStart + 3) << "both looks again, then the key";

    const std::pair<std::string, const char*> changes[] = {
        {psLine, "before the first key: the agent process ended"},
        {"pane_current_command", "the pane no longer holds this session"},
    };
    for (const auto& [line, reason] : changes) {
        healthy();
        whileAsking = [this, line] {
            clock->advance(0.6);
            runner->on(line, says(""));
        };
        EXPECT_EQ(perform(answerJob()), JobOutcome::refused(reason));
        EXPECT_EQ(asked, 1);
        EXPECT_TRUE(runner->lines("send-keys").empty());
    }
}

TEST_F(LiveExecutorTest, aDaemonThatSaysNoStopsEveryKindOfJob) {
    auto focus = answerJob();
    focus.type = "focus";
    auto open = answerJob();
    open.type = "open";
    open.open = DeliverJob::Open{"/", {"claude"}, std::nullopt};
    for (const auto& job : {answerJob(), focus, open, trustJob()}) {
        healthy();
        runner->on("capture-pane", says(question(true)));
        stop = "withdrawn";
        EXPECT_EQ(perform(job), JobOutcome::refused("withdrawn")) << job.type;
        EXPECT_EQ(runner->calls.size(), callsAtStart) << job.type;
    }
}

TEST_F(LiveExecutorTest, theCheapChecksComeBeforeTheDaemonHearsAnything) {
    clock->advance(101);
    EXPECT_EQ(perform(answerJob()), JobOutcome::refused("the job expired"));
    healthy();
    auto foreign = answerJob();
    foreign.presence = "other";
    EXPECT_EQ(perform(foreign), JobOutcome::refused("the answer was not pressed in this app"));
    EXPECT_EQ(runner->lines(), Lines{psLine});
    auto job = answerJob();
    job.host = "terminal";
    EXPECT_EQ(perform(job), JobOutcome::refused("terminal cannot take this answer here"));
    job = answerJob();
    job.hostRef = "%3;rm";
    EXPECT_EQ(perform(job), JobOutcome::refused("tmux cannot take this answer here"));
    EXPECT_EQ(asked, 0);
}

TEST_F(LiveExecutorTest, aScriptsVerdictIsRefusedAtTheFirstKeyAndFailedLater) {
    auto job = answerJob({DeliverStep::text("yes")});
    job.host = "iterm2";
    job.hostRef = "ABC";
    const std::string shell = "the terminal is at a shell prompt: the agent ended";
    const struct {
        std::vector<RunOutput> outputs;
        JobOutcome outcome;
    } rows[] = {
        {{says("ok")}, JobOutcome::done()},
        {{says("shell")}, JobOutcome::refused(shell)},
        {{says("ok"), says("shell")}, JobOutcome::failed(shell)},
        {{says("ok"), says("shell", 1)}, JobOutcome::failed(shell)},
        {{says("ok", 1)}, JobOutcome::refused("the terminal did not take the keys")},
        {{says("ok"), RunOutput()}, JobOutcome::failed("the terminal did not answer")},
    };
    for (const auto& [outputs, outcome] : rows) {
        healthy();
        runner->on("itermWrite", outputs);
        EXPECT_EQ(perform(job), outcome);
    }
    EXPECT_EQ(runner->lines("itermWrite"), (Lines{"osascript itermWrite /dev/ttys004 ABC text yes",
                                               "osascript itermWrite /dev/ttys004 ABC cr "}));
}

TEST_F(LiveExecutorTest, aCodexQueueTakesTheMessageWithoutATerminal) {
    auto job = answerJob({DeliverStep::text("go on")});
    job.agent = "codex";
    job.host = "unknown";
    job.codexThread = "T1";
    job.tty.reset();
    runner->on(psLine, says("501 501 501 ?? codex\n"));
    runner->on("codex queue", says(""));
    EXPECT_EQ(perform(job), JobOutcome::done("codex_queue"));
    EXPECT_EQ(runner->lines(), (Lines{psLine, "codex queue --thread T1 --message go on"}));
    EXPECT_TRUE(pauses.empty());

    runner->on("codex queue", says("", 2));
    EXPECT_EQ(perform(job), JobOutcome::refused("codex queue did not accept the message"));
    job.steps->push_back(DeliverStep::text("more"));
    EXPECT_EQ(perform(job), JobOutcome::refused("unknown cannot take this answer here"));
}

TEST_F(LiveExecutorTest, focusBringsEachHostForwardInItsOwnWay) {
    const struct {
        const char *host, *ref, *line;
        RunOutput output;
        JobOutcome outcome;
    } rows[] = {
        {"tmux", "%3", "tmux select-pane -t %3", says("", 1), JobOutcome::failed("focus failed")},
        {"tmux", "3", nullptr, {}, JobOutcome::refused("this terminal cannot be focused")},
        {"herdr", "w1:p2", "herdr agent focus w1:p2", says(""), JobOutcome::done()},
        {"iterm2", "x", "osascript itermFocus /dev/ttys004", says("ok\n"), JobOutcome::done()},
        {"terminal", "x", "osascript terminalFocus /dev/ttys004", says("missing\n"),
            JobOutcome::failed("the terminal tab is gone")},
        {"unknown", "x", nullptr, {}, JobOutcome::refused("this terminal cannot be focused")},
    };
    auto job = answerJob();
    job.type = "focus";
    for (const auto& row : rows) {
        healthy();
        job.host = row.host;
        job.hostRef = row.ref;
        if (row.line)
            runner->on(row.line, row.output);
        EXPECT_EQ(perform(job), row.outcome) << row.host << " " << row.ref;
        EXPECT_EQ(runner->lines(), row.line ? (Lines{psLine, row.line}) : Lines{psLine});
        EXPECT_EQ(asked, 1);
    }
    job.tty.reset();
    EXPECT_EQ(perform(job), JobOutcome::refused("no terminal to focus"));
}

TEST_F(LiveExecutorTest, openStartsOnlyTheFixedTemplatesInAFolderThatIsThere) {
    auto job = answerJob();
    job.type = "open";
    job.sessionId = "a_b:c-1";
    job.open = DeliverJob::Open{"/tmp", {"claude", "--resume", uuid}, "hi"};
    runner->on("tmux new-session -d -s kd-abc-1 -c /tmp -- /opt/claude --resume " + uuid + " -- hi",
        {says(""), says("", 1)});
    EXPECT_EQ(perform(job), JobOutcome::done());
    EXPECT_EQ(perform(job), JobOutcome::failed("tmux did not open the session"));
    job.sessionId.reset();
    EXPECT_EQ(perform(job), JobOutcome::refused("tmux or the agent was not found"));

    job.host = "terminal";
    runner->on("osascript itermOpen cd '/tmp' && 'claude' '--resume' '" + uuid + "' '--' 'hi'",
        {says("ok\n"), says(""), says("ok", 1)});
    EXPECT_EQ(perform(job), JobOutcome::done());
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(perform(job), JobOutcome::failed("iTerm2 did not open the window"));

    asked = 0;
    job.open->cwd = "/no/such/folder";
    EXPECT_EQ(perform(job), JobOutcome::refused("the session folder is gone"));
    job.open->argv = {"vim"};
    EXPECT_EQ(perform(job), JobOutcome::refused("the resume command is not 1 of the fixed templates"));
    EXPECT_EQ(asked, 2) << "the daemon was asked first";
}

TEST_F(LiveExecutorTest, aPeekReadsTheScreenAndPressesNothing) {
    auto job = trustJob();
    job.type = "peek";
    const std::pair<RunOutput, const char*> rows[] = {{says(question(true)), "trust:trust"},
        {says(question(false, "~/p")), "trust:exit"}, {says(question(true, "/else")), "none"},
        {says(question(true), 1), "none"}};
    for (const auto& [screen, reason] : rows) {
        healthy();
        runner->on("capture-pane", screen);
        EXPECT_EQ(perform(job), (JobOutcome{"done", reason, "host"}));
        EXPECT_EQ(runner->lines(), (Lines{psLine, "tmux capture-pane -p -t %3"}));
        EXPECT_EQ(asked, 0);
    }
}

TEST_F(LiveExecutorTest, runningAppsAreListedAndTheirAccessToldApart) {
    std::map<std::string, ConsentCode> consent;
    const HostAccessProbe probe{
        [&](const std::string& bundle) { return consent[bundle]; }, [] { return true; }};
    const auto look = [&](bool iterm, bool terminal) {
        const auto executor = live();
        return loop.run(executor.hostsAndAccess(iterm, terminal, probe));
    };
    EXPECT_EQ(look(false, false), LiveExecutor::Hosts());
    EXPECT_TRUE(runner->calls.empty());

    runner->on("itermList", says("/dev/ttys003\tABC\tmy tab\ttrue\n"));
    runner->on("terminalList", RunOutput{15, "", "", true});
    EXPECT_EQ(look(true, true), (LiveExecutor::Hosts{{{"iterm2", "ttys003", "ABC", "my tab", true}},
                                    {{"iterm2", HostAccess::ok}, {"terminal", HostAccess::locked}}}));
    consent["com.googlecode.iterm2"] = consentNotAsked;
    runner->calls.clear();
    EXPECT_EQ(look(true, false).access.at("iterm2"), HostAccess::waiting);
    EXPECT_TRUE(runner->calls.empty()) << "a script would pop up the question";
}

} // namespace
} // namespace kelvadrome::test
