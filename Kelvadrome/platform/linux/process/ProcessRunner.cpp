#include "Kelvadrome/platform/linux/process/ProcessRunner.h"

#include "Kelvadrome/platform/linux/process/ChildRun.h"

#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>

namespace kelvadrome {

namespace {

constexpr int graceMillis = 200; // for a child whose caller is gone

/// Asks a child to stop that nobody waits for any more.
std::int32_t dismiss(SpawnedProcess& process) {
    process.signal(SIGTERM);
    pollfd exit{process.exited(), POLLIN, 0};
    ::poll(&exit, 1, graceMillis);
    return process.isRunning() ? -1 : process.reap();
}

RunOutput runToEnd(
    RunCommand command, const std::map<std::string, std::string>& environment, double timeout, int stop) {
    ChildRules rules{.keptOutput = CommandRules::keptOutput,
        .keptErrors = CommandRules::keptErrors,
        .untilStreamsEnd = true,
        .limit = timeout};
    if (command.input)
        rules.input = InputOnceReady{command.input->ready, command.input->give};
    ChildRun child({.executable = std::move(command.path),
                       .arguments = std::move(command.args),
                       .environment = environment},
        std::move(rules));
    const auto end = child.finish(stop);
    const auto status = end.status ? *end.status : dismiss(*child.process());
    return CommandRules::ended(status, end.output, end.errors, end.timedOut);
}

} // namespace

ProcessRunner::ProcessRunner(BackgroundPool& pool, const std::map<std::string, std::string>& environment)
    : pool_(pool), environment_(std::make_shared<const std::map<std::string, std::string>>(
                       CommandRules::environment(environment))) {}

Task<RunOutput> ProcessRunner::run(RunCommand command, double timeout) {
    auto stop = std::make_shared<const Descriptor>(::eventfd(0, EFD_CLOEXEC));
    auto work = [command = std::move(command), environment = environment_, timeout, stop]() mutable {
        return runToEnd(std::move(command), *environment, timeout, stop->get());
    };
    auto cancel = [stop] { ::eventfd_write(stop->get(), 1); };
    auto output = co_await attempt(pool_.run(std::move(work), std::move(cancel)));
    if (!output && !isCancellation(output.error()))
        co_return RunOutput(); // it, or a thread for it, could not be started
    co_return output.take();
}

} // namespace kelvadrome
