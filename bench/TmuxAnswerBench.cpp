// One answer into a tmux pane, from the job to its last key and with the pauses taken out, against a shell
// script of the very commands that it ran, and against a bare send-keys. The pane is real, and so are the
// checks before each key. No two answers are alike, since a line that stands on the screen already is no
// echo.

#include "Kelvadrome/platform/linux/process/DeliveryRunners.h"
#include "Kelvadrome/platform/linux/process/ProcessRunner.h"
#include "KelvadromeKit/delivery/LiveExecutor.h"
#include "KelvadromeKit/delivery/ShellLine.h"
#include "KelvadromeKit/support/Text.h"

#include <boost/asio/io_context.hpp>

#include <benchmark/benchmark.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

using namespace kelvadrome;

namespace {

/// The machine's clock, but no pause lasts.
class Unhurried final : public Clock {
public:
    WallTime now() const override { return clock_.now(); }
    double uptime() const override { return clock_.uptime(); }
    Task<> sleep(double) override { co_return; }

private:
    SystemClock clock_;
};

/// Keeps a copy of the commands that pass.
class Recording final : public CommandRunning {
public:
    explicit Recording(std::shared_ptr<CommandRunning> inner) : inner_(std::move(inner)) {}
    Task<RunOutput> run(RunCommand command, double timeout) override {
        commands.push_back(command);
        return inner_->run(std::move(command), timeout);
    }
    std::vector<RunCommand> commands;

private:
    std::shared_ptr<CommandRunning> inner_;
};

/// A tmux server of its own with "claude" in a pane: a process that reads and echoes.
class AnswerBench {
public:
    AnswerBench() {
        char name[] = "/tmp/kelvadrome-bench-XXXXXX";
        if (!::mkdtemp(name))
            throw std::runtime_error("no temporary folder");
        folder_ = name;
        ::setenv("TMUX_TMPDIR", name, 1);
        ::unsetenv("TMUX");
        runner_ = std::make_shared<ProcessRunner>(pool_);
        std::filesystem::copy_file("/bin/cat", folder_ / "claude");
        const auto started = tmux({"-f", "/dev/null", "new-session", "-d", "-P", "-F",
            "#{pane_id} #{pane_pid}", "--", folder_ / "claude"});
        std::istringstream(started.stdoutText) >> job_.hostRef.emplace() >> job_.pid.emplace();
        job_.id = "j1";
        job_.type = "answer";
        job_.agent = "claude";
        job_.host = "tmux";
        job_.presence = "tag";
        job_.expiresAt = "2099-01-01T00:00:00Z";
        job_.steps = {DeliverStep::text("Yes, go on with the second of the two.")};
        // The process table names it claude once it has exec'd, and its group once it has the terminal.
        for (int i = 0; i < 500; ++i) {
            const auto found = wait(live(runner_).facts(job_.pid));
            if (found && found->isAgent("claude") && found->foreground()) {
                job_.pgid = found->pgid;
                job_.tty = found->tty;
                return;
            }
            ::usleep(10'000);
        }
        throw std::runtime_error("the agent did not start: " + started.stderrText);
    }
    ~AnswerBench() {
        tmux({"kill-server"});
        std::filesystem::remove_all(folder_);
    }
    AnswerBench(const AnswerBench&) = delete;
    AnswerBench& operator=(const AnswerBench&) = delete;

    bool answer() {
        job_.steps = {DeliverStep::text("Yes, go on with number " + std::to_string(++number_) + ".")};
        return answer(runners_.forJob(job_));
    }
    const std::string& pane() const { return *job_.hostRef; }

    /// The commands of one answer as a script: those that were planned, without the gate that carries them
    /// out.
    std::string script() {
        const auto recording = std::make_shared<Recording>(runner_);
        answer(recording);
        std::string lines = "set -e\n";
        for (const auto& command : recording->commands) {
            lines += ShellLine::quote(command.path);
            for (const auto& word : command.args)
                lines += " " + ShellLine::quote(word);
            lines += " >/dev/null\n";
        }
        const auto path = folder_ / "answer.sh";
        std::ofstream(path) << lines;
        return path;
    }

private:
    template <typename T>
    T wait(Task<T> task) {
        std::optional<T> result;
        asio::io_context loop(1);
        asio::co_spawn(loop, std::move(task), [&](std::exception_ptr error, T value) {
            if (error)
                std::rethrow_exception(error);
            result = std::move(value);
        });
        loop.run();
        return std::move(*result);
    }
    RunOutput tmux(std::vector<std::string> words) {
        return wait(runner_->run({"/usr/bin/tmux", std::move(words), 0}, 10));
    }
    LiveExecutor live(std::shared_ptr<CommandRunning> runner) const {
        return {std::move(runner), {{"tmux", "/usr/bin/tmux"}}, clock_, "/nobody"};
    }
    static Task<std::optional<std::string>> go() { co_return std::nullopt; }
    bool answer(std::shared_ptr<CommandRunning> runner) {
        const auto executor = live(std::move(runner));
        return wait(executor.perform(job_, {"tag"}, clock_->now(), go)).outcome == "done";
    }

    BackgroundPool pool_;
    std::shared_ptr<Clock> clock_ = std::make_shared<Unhurried>();
    std::shared_ptr<ProcessRunner> runner_;
    const DeliveryRunners runners_{pool_, Files::processEnvironment(), std::make_shared<SystemClock>()};
    std::filesystem::path folder_;
    DeliverJob job_;
    int number_ = 0;
};

void tmuxAnswerOurs(benchmark::State& state) {
    AnswerBench bench;
    for (auto _ : state) {
        if (!bench.answer())
            state.SkipWithError("the answer was not typed");
    }
}

void runToEnd(benchmark::State& state, std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t pid = 0;
    int status = 0;
    if (::posix_spawn(&pid, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        ::waitpid(pid, &status, 0) != pid || status != 0)
        state.SkipWithError("the child failed");
}

void tmuxAnswerScript(benchmark::State& state) {
    AnswerBench bench;
    const auto path = bench.script();
    for (auto _ : state)
        runToEnd(state, {"/bin/sh", path});
}

void tmuxSendKeys(benchmark::State& state) {
    const AnswerBench bench;
    for (auto _ : state)
        runToEnd(state, {"/usr/bin/tmux", "send-keys", "-t", bench.pane(), "-l", "--", "x"});
}

} // namespace

BENCHMARK(tmuxAnswerOurs)->UseRealTime();
BENCHMARK(tmuxAnswerScript)->UseRealTime();
BENCHMARK(tmuxSendKeys)->UseRealTime();
