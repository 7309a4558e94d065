#include "Kelvadrome/platform/linux/process/PosixChild.h"

#include "Kelvadrome/platform/linux/process/ChildRun.h"
#include "Kelvadrome/platform/linux/process/PosixCommand.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <mutex>
#include <sys/eventfd.h>
#include <system_error>

namespace kelvadrome {

namespace {

class PosixChild final : public ChildProcess {
public:
    PosixChild(std::shared_ptr<SpawnedProcess> process, Descriptor input)
        : process_(std::move(process)), input_(std::move(input)) {}

    bool isRunning() const override { return process_->isRunning(); }
    std::int32_t pid() const override { return process_->pid(); }
    void terminate() override { process_->signal(SIGTERM); }
    void kill() override { process_->signal(SIGKILL); }
    void closeInput() override {
        const std::lock_guard guard(lock_);
        input_.reset();
    }

private:
    const std::shared_ptr<SpawnedProcess> process_;
    std::mutex lock_;
    Descriptor input_;
};

} // namespace

PosixChildLauncher::PosixChildLauncher() : closing_(::eventfd(0, EFD_CLOEXEC)) {
    if (!closing_)
        throw std::system_error(errno, std::generic_category(), "Children could not be watched");
}

PosixChildLauncher::~PosixChildLauncher() {
    ::eventfd_write(closing_.get(), 1);
}

std::shared_ptr<ChildProcess> PosixChildLauncher::launch(Command command, Callbacks callbacks) {
    auto input = command.silent ? Pipe() : Pipe::make();
    const auto run = std::make_shared<ChildRun>(SpawnRequest{.executable = std::move(command.executable),
                                                    .arguments = std::move(command.arguments),
                                                    .environment = std::move(command.environment),
                                                    .currentDirectory = std::move(command.currentDirectory),
                                                    .standardInput = input.readEnd.get()},
        ChildRules{.onOutput = std::move(callbacks.output), .unheard = command.silent});
    const auto watch = [run, exited = std::move(callbacks.exited), leave = closing_.get()] {
        const auto end = run->finish(leave);
        if (end.status)
            exited(*end.status);
    };
    try {
        watchers_.post(watch);
    } catch (const std::system_error&) {
        run->process()->signalGroup(SIGKILL);
        run->process()->reap();
        throw;
    }
    return std::make_shared<PosixChild>(run->process(), std::move(input.writeEnd));
}

ChildLauncher::Output PosixChildLauncher::output(
    std::string executable, std::vector<std::string> arguments, double limit) {
    auto result = runCommand(executable, arguments, Files::processEnvironment(), limit);
    if (result.timedOut)
        return {.problem = fmt::format("{} didn't end within {} s", executable, limit)};
    if (!result.output.empty())
        return {.text = std::move(result.output)};
    const auto errors = Text::repairUTF8(result.errors);
    const auto lines = Text::split(errors, '\n', Text::EmptyPieces::drop);
    if (!lines.empty())
        return {.problem = std::string(lines.front())};
    return {.problem = fmt::format(
                "{} ended with the status or signal {} and said nothing", executable, result.status)};
}

} // namespace kelvadrome
