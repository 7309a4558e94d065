#include "Kelvadrome/platform/linux/process/DeliveryRunners.h"
#include "KelvadromeKit/delivery/LiveExecutor.h"
#include "KelvadromeKit/delivery/TmuxKeys.h"
#include "KelvadromeKit/support/Text.h"

#include "tests/live/keystrokes/Stage.h"
#include "tests/support/Paced.h"

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

/// Jobs for an agent in a pane. The pauses between keys are turned by hand.
class TmuxDelivery : public testing::Test {
protected:
    void startAgent(const std::string& role) {
        stage.emplace(Stage::Setup{.shell = "", .role = role});
        runner = std::make_shared<ProcessRunner>(loop.pool(), stage->environment());
    }

    JobOutcome perform(DeliverJob job) {
        // Waits of its own pass in real time.
        const DeliveryRunners runners(
            loop.pool(), stage->environment(), std::make_shared<SystemClock>(), runner);
        const LiveExecutor executor{runners.forJob(job),
            {{"tmux", "/usr/bin/tmux"}, {"claude", stage->agentBin()}}, clock, "/nobody"};
        const LiveExecutor::Start go = [this] { return yes(this); };
        return runPaced(loop, *clock, executor.perform(std::move(job), {"tag"}, clock->now(), go));
    }
    JobOutcome type(const std::string& text) { return perform(stage->answer({DeliverStep::text(text)})); }

    std::string ask(const std::string& target, const std::string& format) {
        return std::string(
            Text::trimWhitespace(stage->tmux({"display-message", "-p", "-t", target, format})));
    }
    std::string typed() const { return stage->recording().bytes("agent"); }
    void expectTyped(const std::string& text) {
        stage->waitUntil([&] { return typed().size() >= text.size(); }, "the keys to arrive: " + text);
        EXPECT_EQ(typed(), text);
    }

    TestLoop loop;
    std::optional<Stage> stage;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<ProcessRunner> runner;
    std::function<void()> whenAsked = [] {}; // whether the job may start

private:
    static Task<std::optional<std::string>> yes(TmuxDelivery* test) {
        test->whenAsked();
        co_return std::nullopt;
    }
};

TEST_F(TmuxDelivery, keysAndTextsOfAnyKindAndLengthArriveExactlyAsPressed) {
    startAgent("reader");
    EXPECT_EQ(perform(stage->answer({DeliverStep::key("2")})), JobOutcome::done());
    std::string flags;
    for (int i = 0; i < 2'100; ++i)
        flags += "🇩🇪";
    const std::string quotes(4'000, '\''); // four bytes each on their way
    const std::string text = "-t 'Zoë' Enter; $HOME \\n 日本語 🎉 \"q\" #{pane_id} %1";
    EXPECT_EQ(perform(stage->answer({DeliverStep::escape(), DeliverStep::text(text)})), JobOutcome::done());
    auto all = "2\033" + text + "\r";
    for (const std::string& one :
        {std::string(";"), std::string("done;"), std::string("a\\;"), quotes, flags}) {
        EXPECT_EQ(type(one), JobOutcome::done());
        all += one + "\r";
        expectTyped(all);
    }
}

TEST_F(TmuxDelivery, aServerThatStandsStillIsLeftBehindAndTypesNothingWhenItWakes) {
    startAgent("reader");
    whenAsked = [this] { ::kill(stage->server(), SIGSTOP); };
    const auto outcome = type("late");
    ::kill(stage->server(), SIGCONT);
    EXPECT_NE(outcome.outcome, "done");
    whenAsked = [] {};
    EXPECT_EQ(perform(stage->answer({DeliverStep::key("1")})), JobOutcome::done());
    expectTyped("1");
}

TEST_F(TmuxDelivery, returnIsKeptBackWhereTheTextDoesNotStandAtAPrompt) {
    // The terminal itself keeps the line of a password prompt; a menu ignores the text.
    for (const auto& [role, got] : {std::pair("silent", ""), std::pair("menu", "no")}) {
        startAgent(role);
        EXPECT_EQ(type("no"), JobOutcome::failed("the text does not stand at the agent's prompt")) << role;
        EXPECT_EQ(typed(), got) << role;
    }
}

TEST_F(TmuxDelivery, aKeyThatTmuxGetsTooLateIsNotTyped) {
    startAgent("reader");
    const auto job = stage->answer({});
    const auto look = TmuxKeys::look("/usr/bin/tmux", stage->pane(), job.tty.value());
    const auto seen = TmuxKeys::parseLook(stage->tmux(look->args));
    ASSERT_TRUE(seen);
    const RunCommand key{"/usr/bin/tmux", {"send-keys", "-t", stage->pane(), "-l", "--", "1"}, 0};
    const auto now = SystemClock().now().time_since_epoch().count();
    // As from a server that slept; and from one whose clock was set back meanwhile.
    for (const double sent : {now - 100, now + 100, now}) {
        const TmuxKeys::Condition condition{.look = *seen, .lines = {}, .sent = sent, .limit = 7};
        auto client = TmuxKeys::waiting(key, "ready");
        client.args.insert(client.args.begin(), {"-S", stage->socket()});
        client.input = std::make_shared<const LateInput>(
            LateInput{"ready", [&](std::string_view) { return TmuxKeys::guarded(key, condition); }});
        auto output = loop.run(runner->run(client, 10));
        output.stdoutText.erase(0, std::string_view("ready\n").size());
        const auto verdict = TmuxKeys::verdict(output, condition, true);
        EXPECT_EQ(
            verdict.kind, sent == now ? TmuxKeys::Verdict::Kind::typed : TmuxKeys::Verdict::Kind::refused);
    }
    expectTyped("1");
}

TEST_F(TmuxDelivery, focusSelectsThePaneAndOpenStartsASession) {
    startAgent("reader");
    const auto session = ask(stage->pane(), "#{session_id}");
    stage->tmux({"select-pane", "-t", session + ":.+"});
    EXPECT_NE(ask(session, "#{pane_id}"), stage->pane());
    auto job = stage->answer({});
    job.type = "focus";
    EXPECT_EQ(perform(job), JobOutcome::done());
    EXPECT_EQ(ask(session, "#{pane_id}"), stage->pane());

    job.type = "open";
    int number = 0;
    // A folder's name is nothing but a name.
    for (const std::string name :
        {"plain", "#(touch trace)", "a#{pid}", "#[x]#(y)", "##", "100%d", "it's; $x;"}) {
        const auto cwd = stage->project() + "/" + name;
        std::filesystem::create_directory(cwd);
        job.sessionId = fmt::format("0a_b-{}", ++number);
        job.open = DeliverJob::Open{cwd, {"claude"}, std::nullopt};
        EXPECT_EQ(perform(job), JobOutcome::done()) << name;
        const auto opened = fmt::format("=kd-0ab-{}:", number);
        stage->waitUntil(
            [&] { return ask(opened, "#{pane_current_command} #{pane_current_path}") == "claude " + cwd; },
            "the agent to run in " + name);
    }
    EXPECT_EQ(perform(job), JobOutcome::failed("tmux did not open the session")) << "the name is taken";
}

} // namespace
} // namespace test
} // namespace kelvadrome
