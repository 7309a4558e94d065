#include "KelvadromeKit/delivery/HostPlan.h"
#include "KelvadromeKit/delivery/LiveScripts.h"

#include "tests/delivery/Jobs.h"

#include <gtest/gtest.h>

#include <functional>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace kelvadrome {

void PrintTo(const RunCommand& command, std::ostream* out) {
    *out << command.path;
    for (const auto& arg : command.args)
        *out << " [" << arg << "]";
    *out << " then " << command.pauseAfterMs << " ms";
}

} // namespace kelvadrome

namespace {

using S = DeliverStep;
using Plan = std::vector<RunCommand>;

const HostPlan::Bins bins{
    {"tmux", "/b/tmux"}, {"herdr", "/b/herdr"}, {"codex", "/b/codex"}, {"claude", "/b/claude"}};
const std::vector<S> oneOfEach{S::key("1"), S::text("-l; $(x)"), S::escape()};

DeliverJob jobOn(
    const std::string& host, const std::optional<std::string>& ref, std::vector<S> steps = oneOfEach) {
    auto job = answerJob(std::move(steps));
    job.host = host;
    job.hostRef = ref;
    return job;
}

RunCommand iterm(std::string_view script, std::vector<std::string> rest, std::int64_t pause = 0) {
    RunCommand command{"/usr/bin/osascript", {"-e", std::string(script), "/dev/ttys004"}, pause};
    command.args.insert(command.args.end(), rest.begin(), rest.end());
    return command;
}

const std::vector<std::optional<std::string>> hostileRefs{
    std::nullopt, "", "%", "%3;rm", "%3\n", " %3", "%٣", "w1:p", "w1:p2;x", "w1:p2\n", "W1:p2"};

} // namespace

TEST(HostPlan, eachHostIsTypedIntoInItsOwnWords) {
    EXPECT_EQ(HostPlan::commands(jobOn("tmux", "%3"), bins),
        (Plan{{"/b/tmux", {"send-keys", "-t", "%3", "-l", "--", "1"}, 150},
            {"/b/tmux", {"send-keys", "-t", "%3", "-l", "--", "-l; $(x)"}, 250},
            {"/b/tmux", {"send-keys", "-t", "%3", "Enter"}, 100},
            {"/b/tmux", {"send-keys", "-t", "%3", "Escape"}, 450}}));
    EXPECT_EQ(HostPlan::commands(jobOn("herdr", "w1:p20"), bins),
        (Plan{{"/b/herdr", {"pane", "send-keys", "w1:p20", "1"}, 150},
            {"/b/herdr", {"pane", "send-text", "w1:p20", "-l; $(x)"}, 250},
            {"/b/herdr", {"pane", "send-keys", "w1:p20", "enter"}, 100},
            {"/b/herdr", {"pane", "send-keys", "w1:p20", "esc"}, 450}}));
    EXPECT_EQ(HostPlan::commands(jobOn("herdr", "w1:p20", {S::text("go")}), bins),
        (Plan{{"/b/herdr", {"agent", "prompt", "w1:p20", "go"}, 150}}));
    const auto& write = LiveScripts::itermWrite;
    EXPECT_EQ(HostPlan::commands(jobOn("iterm2", "A-1"), {}),
        (Plan{iterm(write, {"A-1", "key", "1"}, 150), iterm(write, {"A-1", "text", "-l; $(x)"}, 250),
            iterm(write, {"A-1", "cr", ""}, 100), iterm(write, {"A-1", "esc", ""}, 450)}));
}

TEST(HostPlan, whatCannotBeTypedThereIsNoPlan) {
    auto job = jobOn("tmux", "%3");
    job.tty.reset();
    EXPECT_FALSE(HostPlan::commands(job, bins)) << "no terminal";
    job = jobOn("tmux", "%3");
    job.steps.reset();
    EXPECT_FALSE(HostPlan::commands(job, bins)) << "no steps";
    job = jobOn("tmux", "%3", {S::text("go")});
    job.codexThread = "t1";
    EXPECT_EQ(HostPlan::commands(job, bins)->front().path, "/b/tmux") << "the queue is for no host";
    job.host = "unknown";
    EXPECT_TRUE(HostPlan::commands(job, bins));
    EXPECT_FALSE(HostPlan::commands(job, {})) << "no codex";
    for (const auto* host : {"terminal", "unknown", "TMUX"})
        EXPECT_FALSE(HostPlan::commands(jobOn(host, "%3"), bins)) << host;
    const std::pair<const char*, const char*> hosts[] = {{"tmux", "%3"}, {"herdr", "w1:p2"}, {"iterm2", "A"}};
    for (const auto& [host, ref] : hosts)
        EXPECT_FALSE(HostPlan::commands(jobOn(host, ref, {S::key("1"), S::nav("down")}), bins)) << host;
    for (const auto& ref : hostileRefs) {
        EXPECT_FALSE(HostPlan::commands(jobOn("tmux", ref), bins)) << ref.value_or("none");
        EXPECT_FALSE(HostPlan::commands(jobOn("herdr", ref, {S::text("go")}), bins)) << ref.value_or("none");
    }
}

TEST(HostPlan, aScreenIsReadAndSteeredInTmuxAndITerm2Only) {
    auto job = trustJob();
    EXPECT_EQ(
        HostPlan::screenRead(job, bins), (RunCommand{"/b/tmux", {"capture-pane", "-p", "-t", "%3"}, 0}));
    const std::tuple<const char*, const char*, const char*> keys[] = {
        {"up", "Up", "up"}, {"down", "Down", "down"}, {"enter", "Enter", "cr"}};
    for (const auto& [key, tmuxKey, mode] : keys) {
        job.host = "tmux";
        EXPECT_EQ(
            HostPlan::navKey(job, key, bins), (RunCommand{"/b/tmux", {"send-keys", "-t", "%3", tmuxKey}, 0}));
        job.host = "iterm2";
        EXPECT_EQ(HostPlan::navKey(job, key, {}), iterm(LiveScripts::itermWrite, {"%3", mode, ""}));
    }
    EXPECT_EQ(HostPlan::screenRead(job, {}), iterm(LiveScripts::itermRead, {"%3"}));

    const auto expectNeither = [](const std::function<void(DeliverJob&)>& change, const char* what) {
        auto spoilt = trustJob();
        change(spoilt);
        EXPECT_FALSE(HostPlan::screenRead(spoilt, bins) || HostPlan::navKey(spoilt, "up", bins)) << what;
    };
    for (const auto* host : {"herdr", "terminal"})
        expectNeither([&](DeliverJob& one) { one.host = host; }, host);
    for (const auto& ref : hostileRefs)
        expectNeither([&](DeliverJob& one) { one.hostRef = ref; }, "reference");
    expectNeither([](DeliverJob& one) { one.tty.reset(); }, "terminal");
    EXPECT_FALSE(HostPlan::navKey(job, "left", bins));
    job.screen->profile = "other";
    EXPECT_FALSE(HostPlan::screenRead(job, bins));
}

TEST(HostPlan, tmuxStartsAnAgentInASessionOfItsOwn) {
    auto job = answerJob();
    job.sessionId = "a_b:c-1 ü²\n$";
    job.open = DeliverJob::Open{"/w", {}, std::nullopt};
    const std::vector<std::string> argv{"claude", "--resume", "id"};
    EXPECT_EQ(HostPlan::tmuxOpen(job, argv, bins),
        (RunCommand{"/b/tmux",
            {"new-session", "-d", "-s", "kd-abc-1ü²", "-c", "/w", "--", "/b/claude", "--resume", "id"}, 0}));
    EXPECT_EQ(HostPlan::tmuxOpen(job, {"claude", "--", "go;"}, bins)->args.back(), "go\\;");
    const auto program = [&](const std::vector<std::string>& words) {
        return HostPlan::tmuxOpen(job, words, {{"tmux", "/t"}, {"claude", "/my $x/claude"}})->args[7];
    };
    EXPECT_EQ(program({"claude"}), "'/my $x/claude'") << "alone it goes through a shell";
    EXPECT_EQ(program(argv), "/my $x/claude");
    EXPECT_FALSE(HostPlan::tmuxOpen(job, {"grok"}, bins));
    EXPECT_FALSE(HostPlan::tmuxOpen(job, argv, {{"claude", "/b/claude"}}));
}

TEST(HostPlan, thePaneIsAskedWhatItHoldsBeforeTheFirstKey) {
    auto herdr = jobOn("herdr", "w1:p2");
    EXPECT_EQ(HostPlan::preflight(herdr, bins),
        (RunCommand{"/b/herdr", {"pane", "process-info", "--pane", "w1:p2"}, 0}));
    const auto tmux = jobOn("tmux", "%3");
    const std::pair<const char*, bool> answers[] = {{"/dev/ttys004 claude\n", true}, {"ttys004 node", true},
        {"/dev/ttys004", true}, {"/dev/ttys004   -zsh \n", false}, {"/dev/ttys009 claude", false},
        {"/dev/ttys0041 claude", false}, {" \n", false}, {"claude /dev/ttys004", false}};
    for (const auto& [output, passes] : answers)
        EXPECT_EQ(HostPlan::preflightPasses(tmux, output), passes) << output;
    for (const auto& shell : HostPlan::shells())
        EXPECT_FALSE(HostPlan::preflightPasses(tmux, "/dev/ttys004 " + shell)) << shell;

    EXPECT_TRUE(HostPlan::preflightPasses(herdr, R"({"pid":501})"));
    EXPECT_FALSE(HostPlan::preflightPasses(herdr, R"({"pid":502,"ppid":501})"));
    herdr.pid.reset();
    EXPECT_FALSE(HostPlan::preflightPasses(herdr, R"({"pid":501})"));
}

TEST(HostPlan, everyPidThatHerdrNamesIsFound) {
    using Pids = std::set<std::int64_t>;
    const std::pair<std::string, Pids> rows[] = {
        {R"({"panes":[{"pid":12,"shell_pid":"x","kids":[{"pid":13}]}]})", {12, 13}},
        {R"([{"shell_pid":7},{"pid":{"pid":8}},{"pid":[{"pid":9},10]}])", {7, 8, 9}},
        {R"({"pid":"14","PID":15,"parent_pid":16,"pid2":17})", {}},
        {R"({"pid":1.5,"shell_pid":true,"x":null})", {}}, {R"({"pid":12} trailing)", {}}, {"12", {}},
        {std::string(5000, '['), {}}};
    for (const auto& [output, pids] : rows)
        EXPECT_EQ(HostPlan::herdrPids(output), pids) << output.substr(0, 80);
}
