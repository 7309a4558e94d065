#include "tests/delivery/LiveExecutorFixture.h"

namespace kelvadrome::test {
namespace {

class ScreenAnswerTest : public LiveExecutorTest {
protected:
    static constexpr const char* read = "tmux capture-pane -p -t %3";

    /// The screens in the order of the reads; the last one stays.
    JobOutcome answer(std::string want, std::vector<std::string> screens) {
        std::vector<RunOutput> outputs;
        for (auto& screen : screens)
            outputs.push_back(says(std::move(screen)));
        runner->on(read, outputs);
        return perform(trustJob(std::move(want)));
    }
    Lines keys() const { return runner->lines("send-keys"); }

    const std::string yes = question(true), no = question(false), blank = "$ \n";
    const std::string down = "tmux send-keys -t %3 Down", up = "tmux send-keys -t %3 Up",
                      enter = "tmux send-keys -t %3 Enter";
};

TEST_F(ScreenAnswerTest, theSelectionIsMovedThenConfirmedEachKeyFromAFreshRead) {
    EXPECT_EQ(answer("trust", {no, no, yes, blank}), JobOutcome::done());
    EXPECT_EQ(runner->lines(),
        (Lines{psLine, read, stateLine, psLine, read, down, psLine, read, enter, read, psLine}));
    EXPECT_EQ(pauses, (Pauses{300, 900}));
    EXPECT_EQ(callsAtStart, 3U);

    healthy();
    EXPECT_EQ(answer("trust", {yes, yes, blank}), JobOutcome::done());
    EXPECT_EQ(keys(), Lines{enter});
    healthy();
    EXPECT_EQ(answer("exit", {yes, yes, no, blank}), JobOutcome::done());
    EXPECT_EQ(keys(), (Lines{up, enter}));
    EXPECT_EQ(runner->lines().back(), read) << "whoever exits needn't be there";
}

TEST_F(ScreenAnswerTest, aQuestionThatDoesNotGoAlongEndsTheAnswer) {
    EXPECT_EQ(answer("trust", {no}), JobOutcome::failed("the selection did not move"));
    EXPECT_EQ(keys(), (Lines{down, down, down, down}));
    EXPECT_EQ(pauses, (Pauses{300, 300, 300, 300}));
    healthy();
    EXPECT_EQ(answer("trust", {blank}), JobOutcome::refused("the folder question is no longer on screen"));
    EXPECT_EQ(asked, 0);
    healthy();
    EXPECT_EQ(answer("trust", {no, blank}), JobOutcome::refused("the folder question left the screen"));
    EXPECT_EQ(asked, 1);
    healthy();
    EXPECT_EQ(answer("trust", {no, no, blank}), JobOutcome::failed("the folder question left the screen"));
    healthy();
    EXPECT_EQ(answer("trust", {yes}), JobOutcome::failed("the folder question did not take Return"));
    healthy();
    runner->on(psLine, {says(alive), says(alive), says("501 501 501 ttys004 zsh\n")});
    EXPECT_EQ(answer("trust", {yes, yes, blank}), JobOutcome::failed("Claude left after Return"));
}

TEST_F(ScreenAnswerTest, expiryCountsBetweenTheKeys) {
    whileAsking = [this] { clock->advance(101); };
    EXPECT_EQ(answer("trust", {yes}), JobOutcome::refused("before the key: the job expired"));
    healthy();
    whileAsking = [this] { clock->advance(99.8); }; // the pause after the first key does the rest
    EXPECT_EQ(answer("trust", {no}), JobOutcome::failed("before the key: the job expired"));
    EXPECT_EQ(keys(), Lines{down});
}

TEST_F(ScreenAnswerTest, aFailureAtAnyStepEndsTheAnswerThere) {
    const std::string gone = "before the key: the agent process ended";
    const std::string left = "the folder question left the screen";
    const std::string untaken = "the terminal did not take the key";
    const std::vector<JobOutcome> expected{JobOutcome::refused("the agent process ended"),
        JobOutcome::refused("the folder question is no longer on screen"),
        JobOutcome::refused("the pane no longer holds this session"), JobOutcome::refused(gone),
        JobOutcome::refused(left), JobOutcome::refused(untaken), JobOutcome::failed(gone),
        JobOutcome::failed(left), JobOutcome::failed(untaken)};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        healthy();
        runner->failing = i;
        EXPECT_EQ(answer("trust", {no, no, yes, blank}), expected[i]);
        EXPECT_EQ(runner->calls.size(), i + 1);
    }
}

TEST_F(ScreenAnswerTest, whatIsNoScreenAnswerIsABadKey) {
    const auto judged = [this](DeliverJob job) {
        const auto executor = live();
        return paced(executor.trustAnswer(std::move(job), start(), [] { return beforeExpiry; }));
    };
    auto job = trustJob();
    job.host = "herdr";
    EXPECT_EQ(judged(job), JobOutcome::refused("bad key"));
    EXPECT_EQ(judged(trustJob("maybe")), JobOutcome::refused("bad key"));
    job = trustJob();
    job.screen->folder.reset();
    EXPECT_EQ(judged(job), JobOutcome::refused("bad key"));
    EXPECT_TRUE(runner->calls.empty());
}

TEST_F(ScreenAnswerTest, iTermSaysItselfWhetherItTookTheKey) {
    auto job = trustJob();
    job.host = "iterm2";
    job.hostRef = "ABC";
    runner->on("itermRead", {says(no), says(no), says(yes), says(blank)});
    runner->on("itermWrite", {says("ok"), says("moved")});
    EXPECT_EQ(perform(job), JobOutcome::failed("the session moved to another terminal tab"));
    EXPECT_EQ(runner->lines("itermWrite"),
        (Lines{"osascript itermWrite /dev/ttys004 ABC down ", "osascript itermWrite /dev/ttys004 ABC cr "}));
}

} // namespace
} // namespace kelvadrome::test
