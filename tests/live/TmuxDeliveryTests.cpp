#include "Kelvadrome/platform/linux/process/DeliveryRunners.h"
#include "Kelvadrome/platform/linux/process/ProcessRunner.h"
#include "KelvadromeKit/delivery/LiveExecutor.h"
#include "KelvadromeKit/delivery/TmuxKeys.h"
#include "KelvadromeKit/support/Text.h"

#include "tests/support/Paced.h"
#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace kelvadrome {

void PrintTo(const JobOutcome& outcome, std::ostream* out) {
    *out << outcome.outcome << " (" << outcome.reason.value_or("no reason") << ")";
}

namespace test {
namespace {

/// A tmux server of this test's own, which plain "tmux" reaches by its environment, with an agent in a pane.
class TmuxDelivery : public testing::Test {
protected:
    TmuxDelivery() {
        std::filesystem::copy_file(FAKE_AGENT, agent_); // ps names a process by its file
    }
    ~TmuxDelivery() override { tmux({"kill-server"}); }

    RunOutput tmux(std::vector<std::string> words) {
        return loop.run(runner->run({"/usr/bin/tmux", std::move(words), 0}, 10));
    }
    std::string ask(const std::string& target, const std::string& format) {
        const auto output = tmux({"display-message", "-p", "-t", target, format});
        return std::string(Text::trimWhitespace(output.stdoutText));
    }
    std::string screen() { return tmux({"capture-pane", "-p", "-t", pane}).stdoutText; }

    /// Starts the agent in a new session and waits until it is drawn.
    void startAgent(std::vector<std::string> more = {}) {
        std::vector<std::string> words{"-f", "/dev/null", "new-session", "-d", "-x", "100", "-y", "30", "-P",
            "-F", "#{pane_id}", "--", agent_, log_};
        words.insert(words.end(), more.begin(), more.end());
        const auto output = tmux(words);
        ASSERT_EQ(output.status, 0) << output.stderrText;
        pane = Text::trimWhitespace(output.stdoutText);
        loop.until([&] { return !Text::trimWhitespace(screen()).empty(); }, "the agent to be drawn");
        pid = std::stoll(ask(pane, "#{pane_pid}"));
    }

    /// An answer for the agent as it is now.
    DeliverJob answer(std::vector<DeliverStep> steps) {
        const auto executor = live(runner);
        const auto facts = loop.run(executor.facts(pid));
        EXPECT_TRUE(facts && facts->isAgent("claude") && facts->foreground());
        DeliverJob job;
        job.id = "j1";
        job.type = "answer";
        job.agent = "claude";
        job.pid = pid;
        job.pgid = facts ? facts->pgid : 0;
        job.tty = facts ? facts->tty : std::nullopt;
        job.host = "tmux";
        job.hostRef = pane;
        job.steps = std::move(steps);
        job.presence = "tag";
        job.expiresAt = "2099-01-01T00:00:00Z";
        return job;
    }

    JobOutcome perform(DeliverJob job, const std::function<void(double)>& onPause = {}) {
        const auto executor = live(runners.forJob(job));
        return runPaced(loop, *clock, executor.perform(std::move(job), {"tag"}, clock->now(), go), onPause);
    }
    /// The keys alone, for what the first checks would already have caught.
    JobOutcome type(DeliverJob job) {
        const auto executor = live(runners.forJob(job));
        return runPaced(loop, *clock, executor.type(std::move(job), go));
    }
    LiveExecutor live(std::shared_ptr<CommandRunning> through) const {
        return {std::move(through), {{"tmux", "/usr/bin/tmux"}, {"claude", agent_}}, clock, "/nobody"};
    }

    std::string typed() const { return Files::read(log_, 1'000'000).value_or(""); }
    void forgetTyped() { std::filesystem::resize_file(log_, 0); }
    void expectTyped(const std::string& text) {
        loop.until([&] { return typed().size() >= text.size(); }, "the keys to arrive: " + text);
        EXPECT_EQ(typed(), text);
    }
    /// Gone, or waiting for tmux to take note of it, which at times it doesn't.
    bool dead() const {
        const auto status = Files::read("/proc/" + std::to_string(pid) + "/status", 100'000).value_or("");
        return status.empty() || status.find("\nState:\tZ") != std::string::npos;
    }
    void kill(int signal) { ::kill(static_cast<pid_t>(pid), signal); }

    TestLoop loop;
    TemporaryFolder folder;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<ProcessRunner> runner = std::make_shared<ProcessRunner>(loop.pool(),
        std::map<std::string, std::string>{{"PATH", "/usr/bin:/bin"}, {"LANG", "C.UTF-8"}, {"TERM", "xterm"},
            {"HOME", folder.path().string()}, {"TMUX_TMPDIR", folder.path().string()}});
    // Waits of its own pass in real time; the pauses between keys are turned by hand.
    const DeliveryRunners runners{loop.pool(), {}, std::make_shared<SystemClock>(), runner};
    std::string pane;
    std::int64_t pid = 0;
    int starts = 0;
    std::function<void()> whenAsked;
    const LiveExecutor::Start go = [this] { return yes(this); };

private:
    static Task<std::optional<std::string>> yes(TmuxDelivery* test) {
        ++test->starts;
        if (test->whenAsked)
            test->whenAsked();
        co_return std::nullopt;
    }

    const std::string agent_ = folder / "claude";
    const std::string log_ = folder / "typed";
};

TEST_F(TmuxDelivery, keysAndTextArriveExactlyAsPressed) {
    startAgent();
    EXPECT_EQ(perform(answer({DeliverStep::key("2")})), JobOutcome::done());
    expectTyped("2");

    const std::string text = "-t 'Zoë' Enter; $HOME \\n 日本語 🎉 \"q\" #{pane_id} %1";
    EXPECT_EQ(perform(answer({DeliverStep::escape(), DeliverStep::text(text)})), JobOutcome::done());
    auto all = "2\033" + text + "\r";
    expectTyped(all);
    for (const std::string end : {";", "done;", "a\\;", ";;"}) {
        EXPECT_EQ(perform(answer({DeliverStep::text(end)})), JobOutcome::done());
        all += end + "\r";
        expectTyped(all);
    }
    EXPECT_EQ(starts, 6);
}

TEST_F(TmuxDelivery, keysThatWouldGoElsewhereAreNotSent) {
    startAgent();
    const auto neighbour = folder / "neighbour";
    tmux({"split-window", "-d", "-t", pane, "--", "/bin/sh", "-c", "exec cat > '" + neighbour + "'"});
    loop.until([&] { return Files::exists(neighbour); }, "the other pane");
    const auto job = answer({DeliverStep::key("1"), DeliverStep::key("2")});
    using Words = std::vector<std::string>;
    const struct {
        Words set, undo;
        const char* reason;
    } states[] = {
        {{"set-option", "-w", "-t", pane, "synchronize-panes", "on"},
            {"set-option", "-w", "-t", pane, "synchronize-panes", "off"},
            "the pane shares its keys with other panes"},
        {{"copy-mode", "-t", pane}, {"send-keys", "-t", pane, "-X", "cancel"},
            "the pane is in a tmux mode: leave it first"},
        {{"select-pane", "-d", "-t", pane}, {"select-pane", "-e", "-t", pane}, "the pane takes no keys"},
    };
    std::string expected;
    for (const auto& [set, undo, reason] : states) {
        tmux(set);
        EXPECT_EQ(perform(job), JobOutcome::refused(reason));
        tmux(undo);
        EXPECT_EQ(perform(job, [&](double) { tmux(set); }), JobOutcome::failed(reason)) << "between the keys";
        tmux(undo);
        expected += "1";
        expectTyped(expected);
    }
    EXPECT_EQ(starts, 3);
    EXPECT_EQ(perform(job), JobOutcome::done());
    expectTyped(expected + "12");
    EXPECT_EQ(Files::read(neighbour, 100), "");
}

TEST_F(TmuxDelivery, aServerThatStandsStillIsLeftBehindAndTypesNothingWhenItWakes) {
    startAgent();
    const auto server = static_cast<pid_t>(std::stoi(ask(pane, "#{pid}")));
    const auto job = answer({DeliverStep::text("late")});
    whenAsked = [&] { ::kill(server, SIGSTOP); };
    const auto outcome = perform(job);
    ::kill(server, SIGCONT);
    EXPECT_NE(outcome.outcome, "done");
    whenAsked = {};
    EXPECT_EQ(perform(answer({DeliverStep::key("1")})), JobOutcome::done());
    expectTyped("1");
}

TEST_F(TmuxDelivery, anAgentThatBecameAShellGetsNoKeys) {
    startAgent();
    const auto job = answer({DeliverStep::text("rm -rf x")});
    kill(SIGUSR1);
    loop.until([&] { return ask(pane, "#{pane_current_command}") == "sh"; }, "the agent to become a shell");
    EXPECT_EQ(perform(job), JobOutcome::refused("the process on this terminal is not claude"));
    EXPECT_EQ(type(job), JobOutcome::refused("the pane no longer holds this session"));
    EXPECT_EQ(starts, 0);
    EXPECT_EQ(screen().find("rm"), std::string::npos);
}

TEST_F(TmuxDelivery, anAgentInTheBackgroundGetsNoKeys) {
    startAgent();
    const auto job = answer({DeliverStep::key("1")});
    kill(SIGUSR2);
    const auto executor = live(runner);
    loop.until([&] { return !loop.run(executor.facts(pid)).value().foreground(); },
        "another group to take the terminal");
    const std::string background = "the agent is not in the foreground of its terminal";
    EXPECT_EQ(perform(job), JobOutcome::refused(background));
    EXPECT_EQ(type(job), JobOutcome::refused("before the first key: " + background));
    EXPECT_EQ(starts, 0);
    EXPECT_EQ(typed(), "");
}

TEST_F(TmuxDelivery, anAgentThatDiesBetweenTextAndReturnStopsTheAnswer) {
    startAgent();
    tmux({"set-option", "-g", "remain-on-exit", "on"});
    const auto outcome = perform(answer({DeliverStep::text("yes")}), [&](double) {
        kill(SIGKILL);
        loop.until([&] { return dead(); }, "the agent to die");
    });
    EXPECT_EQ(outcome.outcome, "failed");
    EXPECT_TRUE(outcome.reason->starts_with("stopped after 1 of 2 steps: the ")) << *outcome.reason;
    EXPECT_EQ(typed().find('\r'), std::string::npos);
}

TEST_F(TmuxDelivery, theServerIsTheOneThatTheAgentWasStartedIn) {
    startAgent();
    const DeliveryRunners elsewhere(loop.pool(), {{"LANG", "C.UTF-8"}}, std::make_shared<SystemClock>());
    const auto job = answer({DeliverStep::key("1")});
    auto executor = live(elsewhere.forJob(job));
    EXPECT_EQ(runPaced(loop, *clock, executor.perform(job, {"tag"}, clock->now(), go)), JobOutcome::done());
    expectTyped("1");

    // Another server took over the socket, and the pane's number with it.
    std::filesystem::rename(ask(pane, "#{socket_path}"), folder / "moved");
    tmux({"-f", "/dev/null", "new-session", "-d", "-x", "100", "-y", "30", "--", "/bin/cat"});
    EXPECT_EQ(perform(job).outcome, "refused");
    tmux({"kill-server"});
    tmux({"-S", folder / "moved", "kill-server"});
    loop.until([&] { return dead(); }, "the agent to end with its server");
}

TEST_F(TmuxDelivery, aTextOfAnyLengthArrivesWhole) {
    startAgent();
    std::string quotes(4'000, '\''); // four bytes each on their way
    std::string flags;
    for (int i = 0; i < 2'100; ++i)
        flags += "🇩🇪";
    for (const auto& text : {quotes, flags}) {
        EXPECT_EQ(perform(answer({DeliverStep::text(text)})), JobOutcome::done());
        expectTyped(text + "\r");
        forgetTyped();
    }
}

TEST_F(TmuxDelivery, returnIsKeptBackWhereTheTextDoesNotStand) {
    // A password prompt: the terminal itself keeps the line, and shows nothing of it.
    startAgent({"silent"});
    const auto unseen = perform(answer({DeliverStep::text("yes")}));
    EXPECT_EQ(unseen, JobOutcome::failed("the text does not stand at the agent's prompt"));
    EXPECT_EQ(typed(), "");
}

TEST_F(TmuxDelivery, aMenuThatIgnoresTheTextGetsNoReturn) {
    startAgent({"menu"});
    EXPECT_EQ(perform(answer({DeliverStep::text("no")})).outcome, "failed");
    EXPECT_EQ(typed(), "no");
}

TEST_F(TmuxDelivery, aKeyThatTmuxGetsTooLateIsNotTyped) {
    startAgent();
    const auto look = TmuxKeys::look("/usr/bin/tmux", pane, answer({}).tty.value());
    const auto seen = TmuxKeys::parseLook(tmux(look->args).stdoutText);
    ASSERT_TRUE(seen);
    const RunCommand key{"/usr/bin/tmux", {"send-keys", "-t", pane, "-l", "--", "1"}, 0};
    const auto now = SystemClock().now().time_since_epoch().count();
    // As from a server that slept; and from one whose clock was set back meanwhile.
    for (const double sent : {now - 100, now + 100, now}) {
        const TmuxKeys::Condition condition{.look = *seen, .lines = {}, .sent = sent, .limit = 7};
        auto client = TmuxKeys::waiting(key);
        client.input = std::make_shared<const LateInput>(
            LateInput{std::string(TmuxKeys::readyLine), [&] { return TmuxKeys::guarded(key, condition); }});
        const auto kind = TmuxKeys::verdict(loop.run(runner->run(client, 10)), condition, true).kind;
        EXPECT_EQ(kind == TmuxKeys::Verdict::Kind::typed, sent == now);
        EXPECT_EQ(kind == TmuxKeys::Verdict::Kind::refused, sent != now);
    }
    expectTyped("1");
}

TEST_F(TmuxDelivery, theFolderQuestionIsReadAndAnswered) {
    const auto project = folder / "project with blanks";
    startAgent({"trust", project});
    loop.until([&] { return screen().find("Esc to cancel") != std::string::npos; }, "the question");
    auto job = answer({DeliverStep::nav("enter")});
    job.screen = DeliverJob::Screen{"claude_trust", "trust", project};
    auto peek = job;
    peek.type = "peek";
    EXPECT_EQ(perform(peek), (JobOutcome{"done", "trust:exit"}));

    auto elsewhere = job;
    elsewhere.screen->folder = "/somewhere/else";
    EXPECT_EQ(perform(elsewhere), JobOutcome::refused("the folder question is no longer on screen"));

    // In a pause the terminal draws; here it ends as soon as that is done.
    auto before = screen();
    const auto outcome = perform(job, [&](double) {
        loop.until([&] { return screen() != before; }, "the key to be drawn");
        before = screen();
    });
    EXPECT_EQ(outcome, JobOutcome::done());
    EXPECT_EQ(typed().back(), '\r');
    EXPECT_EQ(perform(peek), (JobOutcome{"done", "none"}));
}

TEST_F(TmuxDelivery, focusSelectsThePaneAndOpenStartsASession) {
    startAgent();
    const auto session = ask(pane, "#{session_id}");
    tmux({"split-window", "-t", pane, "--", "/bin/cat"});
    EXPECT_NE(ask(session, "#{pane_id}"), pane);
    auto job = answer({});
    job.type = "focus";
    EXPECT_EQ(perform(job), JobOutcome::done());
    EXPECT_EQ(ask(session, "#{pane_id}"), pane);

    job.type = "open";
    job.sessionId = "0a_b-1";
    job.open = DeliverJob::Open{folder.path().string(), {"claude"}, std::nullopt};
    EXPECT_EQ(perform(job), JobOutcome::done());
    loop.until([&] { return ask("=kd-0ab-1:", "#{pane_current_command}") == "claude"; }, "the agent to run");
    EXPECT_EQ(perform(job), JobOutcome::failed("tmux did not open the session")) << "the name is taken";

    // A folder's name is nothing but a name.
    int number = 0;
    for (const std::string name : {"#(touch trace)", "a#{pid}", "#[x]#(y)", "##", "100%d", "it's; $x;"}) {
        const auto cwd = folder / name;
        std::filesystem::create_directory(cwd);
        job.sessionId = std::to_string(++number);
        job.open = DeliverJob::Open{cwd, {"claude"}, std::nullopt};
        EXPECT_EQ(perform(job), JobOutcome::done()) << name;
        loop.until([&] { return ask("=kd-" + *job.sessionId + ":", "#{pane_current_path}") == cwd; },
            "the session to start in " + name);
    }
}

} // namespace
} // namespace test
} // namespace kelvadrome
