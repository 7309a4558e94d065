#include "Kelvadrome/platform/linux/process/PosixChild.h"
#include "Kelvadrome/platform/linux/process/PosixCommand.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

namespace kelvadrome::test {
namespace {

/// Real children, whose words and ends arrive on the test's loop.
class PosixChildTest : public testing::Test {
protected:
    std::shared_ptr<ChildProcess> launch(const std::string& script, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"-c", script, "sh"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return launcher.launch(
            {"/bin/sh", arguments, {{"PATH", "/usr/bin:/bin"}, {"WORD", "w o"}}, folder.path()},
            {.output = [this](std::string chunk) { post([this, chunk] { said += chunk; }); },
                .exited = [this](std::int32_t code) { post([this, code] { ended.push_back(code); }); }});
    }
    void post(std::function<void()> then) { asio::post(loop.executor(), std::move(then)); }
    void untilEnded() {
        loop.until([this] { return !ended.empty(); }, "the child's end");
    }

    TestLoop loop;
    TemporaryFolder folder;
    std::string said;
    std::vector<std::int32_t> ended;
    PosixChildLauncher launcher;
};

TEST_F(PosixChildTest, itsWordsComeMergedAndInOrderBeforeItsEnd) {
    const auto child = launch("echo \"$1|$WORD|$HOME\"; pwd; echo oops >&2; echo last; exit 7", {"a b"});
    untilEnded();
    EXPECT_EQ(said, "a b|w o|\n" + folder.path().string() + "\noops\nlast\n");
    EXPECT_EQ(ended, std::vector<std::int32_t>{7});
    EXPECT_FALSE(child->isRunning());
    child->terminate(); // nobody's process any more
    child->kill();
}

TEST_F(PosixChildTest, itEndsByASignalOrWhenItsInputDoes) {
    auto told = launch("echo up; exec sleep 100");
    loop.until([this] { return said == "up\n"; }, "the child to be up");
    told->terminate();
    untilEnded();
    EXPECT_EQ(ended.back(), SIGTERM);

    ended.clear();
    auto deaf = launch("trap '' TERM; echo deaf; while :; do sleep 1; done");
    loop.until([this] { return said.ends_with("deaf\n"); }, "the child to be deaf");
    deaf->terminate();
    EXPECT_TRUE(deaf->isRunning());
    deaf->kill();
    untilEnded();
    EXPECT_EQ(ended.back(), SIGKILL);

    ended.clear();
    auto reader = launch("cat; exit 3");
    reader->closeInput();
    untilEnded();
    EXPECT_EQ(ended.back(), 3);

    ended.clear();
    launch("cat; exit 4"); // the object, and with it the pipe, is gone at once
    untilEnded();
    EXPECT_EQ(ended.back(), 4);
}

TEST_F(PosixChildTest, aSilentOneHasTheNullDeviceForEachStream) {
    const auto script =
        "(for i in 0 1 2; do readlink /proc/$$/fd/$i; done) > streams; cat; echo heard; exit 6";
    const auto exited = [this](std::int32_t code) { post([this, code] { ended.push_back(code); }); };
    const auto child = launcher.launch(
        {"/bin/sh", {"-c", script}, {{"PATH", "/usr/bin:/bin"}}, folder.path(), true}, {{}, exited});
    untilEnded();
    EXPECT_EQ(ended.back(), 6);
    std::ifstream file(folder / "streams");
    const std::string streams(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(streams, "/dev/null\n/dev/null\n/dev/null\n");
}

TEST_F(PosixChildTest, itsEndIsToldAlthoughAGrandchildHoldsItsOutput) {
    launch("sleep 100 & echo $!; head -c 1000000 /dev/zero | tr '\\0' x; exit 5");
    untilEnded();
    EXPECT_EQ(ended.back(), 5);
    const auto line = said.find('\n');
    EXPECT_EQ(said.size() - line - 1, 1000000U) << "all of its words";
    EXPECT_EQ(::kill(std::stoi(said.substr(0, line)), SIGKILL), 0);
}

TEST_F(PosixChildTest, aFailedStartThrowsAndALauncherThatGoesLeavesItsChildrenAlone) {
    auto leaving = std::make_unique<PosixChildLauncher>();
    EXPECT_THAT(
        [&] {
            leaving->launch({"/no/such/program", {}, {}, folder.path()}, {});
        },
        testing::ThrowsMessage<std::system_error>(
            "/no/such/program could not be started: No such file or directory"));
    EXPECT_THROW(leaving->launch({"/bin/sh", {}, {}, "/no/such/folder"}, {}), std::system_error);

    const auto child = leaving->launch({"/bin/cat", {}, {}, folder.path()}, {});
    leaving.reset();
    EXPECT_TRUE(child->isRunning());
    child->kill();
}

TEST(PosixCommand, aFailureIsAValueWithItsWords) {
    EXPECT_EQ(runCommand("/bin/sh", {"-c", "echo out; echo err >&2; exit 9"}, {}, 10.0),
        (CommandResult{9, "out\n", "err\n", false}));
    EXPECT_EQ(runCommand("/bin/launchctl-not-here", {}, {}, 10.0),
        (CommandResult{
            -1, "", "/bin/launchctl-not-here could not be started: No such file or directory", false}));
}

TEST(PosixCommand, whatRunsTooLongIsKilledWithWhatItStarted) {
    TemporaryFolder folder;
    const auto result = runCommand("/bin/sh", {"-c", "sleep 100 & echo $! > " + (folder / "pid") + "; wait"},
        {{"PATH", "/usr/bin:/bin"}}, 1.0);
    EXPECT_EQ(result, (CommandResult{-1, "", "", true}));
    std::string pid, id, name, state;
    std::ifstream(folder / "pid") >> pid;
    ASSERT_NE(pid, "");
    const auto dead = [&] {
        return !(std::ifstream("/proc/" + pid + "/stat") >> id >> name >> state) || state == "Z";
    };
    TestLoop().until(dead, "the grandchild to die");
}

TEST_F(PosixChildTest, aProgramIsAskedForItsOutput) {
    EXPECT_EQ(launcher.output("/bin/sh", {"-c", "echo v24; echo noise >&2"}, 10.0).text, "v24\n");
    const auto problem = [this](const std::string& program, const std::string& script, double limit) {
        const auto said = launcher.output(program, {"-c", script}, limit);
        EXPECT_EQ(said.text, "");
        return said.problem;
    };
    EXPECT_EQ(
        problem("/no/program", "", 10.0), "/no/program could not be started: No such file or directory");
    EXPECT_EQ(problem("/bin/sh", "sleep 100", 0.5), "/bin/sh didn't end within 0.5 s");
    EXPECT_EQ(problem("/bin/sh", "echo no libfoo.so >&2; exit 1", 10.0), "no libfoo.so");
    EXPECT_EQ(
        problem("/bin/sh", "exit 3", 10.0), "/bin/sh ended with the status or signal 3 and said nothing");
}

} // namespace
} // namespace kelvadrome::test
