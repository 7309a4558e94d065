#include "Kelvadrome/platform/linux/process/PosixCommand.h"

#include "Kelvadrome/platform/linux/process/PosixSpawn.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <system_error>

namespace kelvadrome {

namespace {

constexpr std::size_t keptBytes = 1 << 20;

/// Takes what is there without waiting, up to more than a pipe holds; what goes past `keptBytes` is dropped.
/// False at the end of the file.
bool takeAvailable(int fd, std::string& into) {
    std::array<char, 65536> buffer{};
    for (int chunk = 0; chunk < 4; ++chunk) {
        const auto count = ::read(fd, buffer.data(), buffer.size());
        if (count < 0)
            return errno == EAGAIN || errno == EINTR;
        if (count == 0)
            return false;
        into.append(buffer.data(), std::min(static_cast<std::size_t>(count), keptBytes - into.size()));
    }
    return true;
}

/// Collects both streams until the child is dead or the time is up; false in the latter case. What a
/// grandchild may still write isn't waited for.
bool collect(const SpawnedProcess& process, const Pipe& output, const Pipe& errors, double limit,
    CommandResult& result) {
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + duration<double>(limit);
    std::array<pollfd, 3> waits{{{process.exited.get(), POLLIN, 0}, {output.readEnd.get(), POLLIN, 0},
        {errors.readEnd.get(), POLLIN, 0}}};
    std::array<std::string*, 3> into{nullptr, &result.output, &result.errors};
    while (true) {
        const auto left = duration_cast<milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0)
            return false;
        if (::poll(waits.data(), waits.size(), static_cast<int>(std::min<std::int64_t>(left, 1000))) < 0)
            continue;
        const bool dead = waits[0].revents != 0;
        for (std::size_t stream = 1; stream < waits.size(); ++stream) {
            auto& wait = waits[stream];
            if ((dead || wait.revents != 0) && wait.fd >= 0 && !takeAvailable(wait.fd, *into[stream]))
                wait.fd = -1;
        }
        if (dead)
            return true;
    }
}

} // namespace

CommandResult runCommand(const std::string& executable, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment, double limit) {
    CommandResult result;
    try {
        auto output = Pipe::make();
        auto errors = Pipe::make();
        for (const auto* pipe : {&output, &errors})
            ::fcntl(pipe->readEnd.get(), F_SETFL, O_NONBLOCK);
        const auto process = spawnProcess({.executable = executable,
            .arguments = arguments,
            .environment = environment,
            .standardOutput = output.writeEnd.get(),
            .standardError = errors.writeEnd.get()});
        output.writeEnd.reset();
        errors.writeEnd.reset();
        result.timedOut = !collect(process, output, errors, limit, result);
        if (result.timedOut)
            ::kill(-process.pid, SIGKILL);
        const int status = reapStatus(process.pid);
        if (!result.timedOut)
            result.status = status;
    } catch (const std::system_error& error) {
        result.errors = error.what();
    }
    return result;
}

} // namespace kelvadrome
