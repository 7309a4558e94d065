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
#include <fstream>

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

    LiveExecutor executorFor(const DeliverJob& job, std::shared_ptr<Clock> pauses) {
        // Waits of the gate pass in real time.
        const DeliveryRunners runners(
            loop.pool(), stage->environment(), std::make_shared<SystemClock>(), runner);
        return {runners.forJob(job), {{"tmux", "/usr/bin/tmux"}, {"claude", stage->agentBin()}},
            std::move(pauses), "/nobody"};
    }
    LiveExecutor::Start go() {
        return [this] { return yes(this); };
    }
    JobOutcome perform(DeliverJob job) {
        const auto executor = executorFor(job, clock);
        return runPaced(loop, *clock, executor.perform(std::move(job), {"tag"}, clock->now(), go()));
    }
    /// With the pauses that an agent needs to draw.
    JobOutcome performInRealTime(DeliverJob job) {
        const auto system = std::make_shared<SystemClock>();
        const auto executor = executorFor(job, system);
        return loop.run(executor.perform(std::move(job), {"tag"}, system->now(), go()));
    }
    JobOutcome type(const std::string& text) { return perform(stage->answer({DeliverStep::text(text)})); }

    std::string ask(const std::string& target, const std::string& format) {
        return std::string(
            Text::trimWhitespace(stage->tmux({"display-message", "-p", "-t", target, format})));
    }
    std::string typed() const { return stage->recording().bytes("agent"); }
    std::string screen(const std::string& pane) { return stage->tmux({"capture-pane", "-p", "-t", pane}); }
    void waitForScreen(const std::string& pane, const std::string& text) {
        stage->waitUntil([&] { return screen(pane).contains(text); }, "the pane to show " + text);
    }
    /// Draws as the agent would, on an empty screen.
    void draw(const DeliverJob& job, const std::string& text, const std::string& last) {
        std::ofstream("/dev/" + job.tty.value()) << "\033[2J\033[H" << text << std::flush;
        waitForScreen(stage->pane(), last);
    }
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

TEST_F(TmuxDelivery, aMenuThatChangesBetweenThePressAndTheKeyGetsNoDigit) {
    startAgent("reader");
    auto job = stage->answer({DeliverStep::key("2")});
    job.menu = std::vector<std::string>{
        "Ja, größer – 日本語", "Nein, und nicht noch einmal 🎉 fragen", "c; #{x}, {y}"};
    const std::string menu =
        "\033[36m❯\033[0m 1. \033[1mJa, größer – 日本語\033[0m\r\n  2. Nein, und nicht noch einmal 🎉 "
        "fragen\r\n  3. c; #{x}, {y}\r\n\r\n\033[2mEsc to cancel\033[0m";
    draw(job, menu, "Esc");
    EXPECT_EQ(perform(job), JobOutcome::done());
    stage->tmux({"resize-window", "-x", "16", "-y", "30"}); // the terminal breaks the lines
    draw(job, menu, "Esc");
    EXPECT_EQ(perform(job), JobOutcome::done());
    job.steps = {{DeliverStep::key("3")}};
    EXPECT_EQ(perform(job), JobOutcome::done());
    expectTyped("223");

    whenAsked = [&] { draw(job, "❯ 1. Yes\r\n  2. No\r\n  3. Never\r\n", "Never"); };
    EXPECT_EQ(perform(job), JobOutcome::refused("option 3 on the screen is \"Never\""));
    draw(job, menu, "Esc");
    whenAsked = [&] { draw(job, "> ", ">"); };
    EXPECT_EQ(perform(job), JobOutcome::refused("the menu is no longer on the screen"));
    expectTyped("223");
}

TEST_F(TmuxDelivery, theSampleAgentsFolderQuestionWithTrustFirstAndItsMenuAreAnswered) {
    startAgent("reader");
    const auto folder = stage->project();
    const auto said = stage->tmux({"new-window", "-d", "-c", folder, "-P", "-F",
        "#{pane_id} #{pane_tty} #{pane_pid}", "--", NODE, SAMPLE_AGENT, "--once", "--pause=0",
        "--script=trust,menu", "--trust-first", "--home=" + folder + "/none"});
    const auto facts = Text::split(Text::trimWhitespace(said), ' ');
    auto job = stage->answer({DeliverStep::nav("enter")});
    job.hostRef = facts[0];
    job.tty = facts[1].substr(std::string_view("/dev/").size());
    job.pid = job.pgid = Text::parseInteger(facts[2]);
    waitForScreen(*job.hostRef, "Enter to confirm");
    stage->tmux({"send-keys", "-t", *job.hostRef, "Down"}); // somebody looked at the other option
    waitForScreen(*job.hostRef, "❯ 2. No, exit");
    job.screen = DeliverJob::Screen{"claude_trust", "trust", folder};
    EXPECT_EQ(performInRealTime(job), JobOutcome::done()) << screen(*job.hostRef);

    waitForScreen(*job.hostRef, "1. PostgreSQL");
    job.screen.reset();
    job.steps = {{DeliverStep::key("2")}};
    job.menu = std::vector<std::string>{"PostgreSQL", "SQLite", "Keep the old one"};
    EXPECT_EQ(performInRealTime(job), JobOutcome::done()) << screen(*job.hostRef);
    waitForScreen(*job.hostRef, "You chose: SQLite");
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
