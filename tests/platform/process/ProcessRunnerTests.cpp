#include "Kelvadrome/platform/linux/process/PosixCommand.h"
#include "Kelvadrome/platform/linux/process/ProcessRunner.h"
#include "KelvadromeKit/support/Descriptor.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace kelvadrome::test {
namespace {

constexpr double ample = 15; // seconds; no child of these tests takes that long

class ProcessRunnerTest : public testing::Test {
protected:
    RunOutput run(RunCommand command) {
        ProcessRunner runner(loop.pool());
        return loop.run(runner.run(std::move(command), ample));
    }
    RunOutput shell(const std::string& script) { return run({"/bin/sh", {"-c", script}, 0}); }

    static auto openDescriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    TestLoop loop;
};

TEST_F(ProcessRunnerTest, outputErrorsAndStatusComeBackApart) {
    EXPECT_EQ(shell("printf out; printf err >&2; exit 7"), (RunOutput{7, "out", "err", false}));
    EXPECT_EQ(run({"/usr/bin/printf", {"%s|", "", "a b", "-n", "$HOME"}, 0}).stdoutText, "|a b|-n|$HOME|");
}

TEST_F(ProcessRunnerTest, aCommandThatCannotStartIsAFailureWithoutAWord) {
    const RunOutput nothing{-1, "", "", false};
    EXPECT_EQ(run({"/bin/no-such-program", {}, 0}), nothing);
    EXPECT_EQ(run({"/bin/echo", {std::string("a\0b", 3)}, 0}), nothing);
    EXPECT_EQ(run({"/bin/echo", {std::string(4'000'000, 'x')}, 0}), nothing)
        << "longer than the system takes";
}

TEST_F(ProcessRunnerTest, allIsReadAndTheBeginningKeptAndWhatIsNoTextRepaired) {
    // Errors first, more than a pipe holds, then output: who reads one after the other would wait for ever.
    const auto both = shell("yes abc | head -c 200000 >&2; yes abcdefg | head -c 2000000; exit 5");
    EXPECT_EQ(both.status, 5);
    ASSERT_EQ(both.stdoutText.size(), 1'000'000U);
    EXPECT_EQ(both.stdoutText.substr(999'992), "abcdefg\n");
    EXPECT_EQ(both.stderrText.size(), 2'048U);

    const auto split = shell("head -c 999999 /dev/zero | tr '\\0' a; printf '\\303\\244more'");
    EXPECT_EQ(split.stdoutText.size(), 999'999U + 3);
    EXPECT_TRUE(split.stdoutText.ends_with("aa\uFFFD"));
    EXPECT_EQ(shell("printf 'a\\377b'; printf '\\200' >&2"), (RunOutput{0, "a\uFFFDb", "\uFFFD", false}));
}

TEST_F(ProcessRunnerTest, theDeadlineAsksOnceAndWhatEndsLaterIsWaitedFor) {
    // All at the same time, with a deadline by which the shells have long begun.
    ProcessRunner runner(loop.pool());
    const auto script = [&](const std::string& text) {
        return runner.run({"/bin/sh", {"-c", text}, 0}, 1.5);
    };
    auto [sleeper, closed, trapped, deaf, grandchild] = loop.run(gather(script("printf early; exec sleep 60"),
        script("exec sleep 60 >&- 2>&-"), script("trap 'exit 9' TERM; while :; do sleep 0.05; done"),
        script("trap '' TERM; sleep 2.5; echo late"), script("(sleep 2.5; echo late) & exit 3")));
    EXPECT_EQ(sleeper.take(), (RunOutput{SIGTERM, "early", "", true}));
    EXPECT_EQ(closed.take(), (RunOutput{SIGTERM, "", "", true})) << "its pipes had ended long before";
    EXPECT_EQ(trapped.take(), (RunOutput{9, "", "", true}));
    EXPECT_EQ(deaf.take(), (RunOutput{0, "late\n", "", true}));
    EXPECT_EQ(grandchild.take(), (RunOutput{3, "late\n", "", false})) << "the child itself was in time";
}

TEST_F(ProcessRunnerTest, aChildStartsCleanWhateverThisProcessDid) {
    const Descriptor inherited(::open("/dev/null", O_RDONLY)); // without O_CLOEXEC
    const auto pipeBefore = ::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked, before;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before); // the pool's threads inherit it
    const auto status = run({"/bin/cat", {"/proc/self/status"}, 0}).stdoutText;
    const auto session = shell("[ $(ps -o sid= -p $$) = $$ ] && echo own").stdoutText;
    const auto descriptors = run({"/bin/ls", {"/proc/self/fd"}, 0}).stdoutText;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::signal(SIGPIPE, pipeBefore);

    // The C library itself leaves its two internal ones, above the standard 31, ignored.
    for (const std::string line : {"SigBlk:\t", "SigIgn:\t"}) {
        const auto signals = std::stoull(status.substr(status.find(line) + line.size()), nullptr, 16);
        EXPECT_EQ(signals & 0x7fffffff, 0U) << status;
    }
    EXPECT_EQ(descriptors, "0\n1\n2\n3\n") << "3 is the listing itself";
    EXPECT_EQ(session, "own\n") << "no key in our terminal reaches it";
    EXPECT_EQ(shell("wc -c").stdoutText, "0\n") << "there is no input";
}

TEST_F(ProcessRunnerTest, theEnvironmentIsTheGivenOneWithoutColour) {
    ProcessRunner runner(loop.pool(), {{"A", "b=c"}, {"NO_COLOR", "0"}});
    EXPECT_EQ(loop.run(runner.run({"/usr/bin/env", {}, 0}, ample)).stdoutText, "A=b=c\nNO_COLOR=1\n");
    EXPECT_EQ(shell("printf ${HOME:+is-there}$NO_COLOR").stdoutText, "is-there1");
}

TEST_F(ProcessRunnerTest, runsGoOnAtTheSameTimeAndLeaveNothingOpen) {
    const auto before = openDescriptors();
    TemporaryFolder folder;
    const auto fifo = folder / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    ProcessRunner runner(loop.pool());
    // Each end waits for the other.
    auto [reader, writer] = loop.run(gather(runner.run({"/bin/cat", {fifo}, 0}, ample),
        runner.run({"/bin/sh", {"-c", "echo met > \"$0\"", fifo}, 0}, ample)));
    EXPECT_EQ(reader.take().stdoutText, "met\n");
    EXPECT_EQ(writer.take().status, 0);
    run({folder / "missing", {}, 0});
    runCommand(folder / "missing", {}, {}, ample);
    runCommand("/bin/true", {}, {}, ample);
    loop.until([&] { return openDescriptors() == before; }, "all descriptors to be closed");
}

Task<> runUntilCancelled(CommandRunning& runner, RunCommand command, bool* ended) {
    co_await runner.run(std::move(command), ample);
    *ended = true;
}

TEST_F(ProcessRunnerTest, aCancelledCallerDoesNotWaitForADeafChild) {
    TemporaryFolder folder;
    const auto begun = folder / "begun";
    ProcessRunner runner(loop.pool());
    bool ended = false;
    const RunCommand deaf{"/bin/sh", {"-c", "trap '' TERM; : > \"$0\"; exec sleep 25", begun}, 0};
    const auto task = spawn(loop.executor(), "run", runUntilCancelled(runner, deaf, &ended));
    loop.until([&] { return std::filesystem::exists(begun); }, "the child to begin");
    EXPECT_FALSE(ended);
    task.cancel();
    loop.until([&] { return ended; }, "the run to be given up");
}

} // namespace
} // namespace kelvadrome::test
