#include "Kelvadrome/platform/linux/process/PosixSpawn.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>

namespace kelvadrome {

namespace {

[[noreturn]] void throwError(int error, const std::string& words) {
    throw std::system_error(error, std::generic_category(), words);
}

Descriptor aboveStandardStreams(Descriptor fd) {
    if (fd.get() > STDERR_FILENO)
        return fd;
    Descriptor moved(::fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!moved)
        throwError(errno, "A pipe could not be made");
    return moved;
}

class FileActions {
public:
    FileActions() { ::posix_spawn_file_actions_init(&actions_); }
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    void stream(int target, int source) {
        if (source >= 0) {
            ::posix_spawn_file_actions_adddup2(&actions_, source, target);
        } else {
            ::posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", O_RDWR, 0);
        }
    }
    void closeOthers() { ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1); }
    void changeFolder(const std::string& path) {
        ::posix_spawn_file_actions_addchdir_np(&actions_, path.c_str());
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

class Attributes {
public:
    Attributes() {
        ::posix_spawnattr_init(&attributes_);
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::posix_spawnattr_setflags(
            &attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

} // namespace

Pipe Pipe::make() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throwError(errno, "A pipe could not be made");
    Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    return {aboveStandardStreams(std::move(readEnd)), aboveStandardStreams(std::move(writeEnd))};
}

SpawnedProcess spawnProcess(const SpawnRequest& request) {
    FileActions actions;
    actions.stream(STDIN_FILENO, request.standardInput);
    actions.stream(STDOUT_FILENO, request.standardOutput);
    actions.stream(STDERR_FILENO, request.standardError);
    actions.closeOthers();
    if (request.currentDirectory)
        actions.changeFolder(*request.currentDirectory);

    std::vector<std::string> arguments = {request.executable};
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    std::vector<std::string> environment;
    for (const auto& [name, value] : request.environment)
        environment.push_back(name + "=" + value);

    const Attributes attributes;
    SpawnedProcess process;
    const int error = ::posix_spawn(&process.pid, request.executable.c_str(), actions.get(), attributes.get(),
        pointers(arguments).data(), pointers(environment).data());
    if (error != 0)
        throwError(error, fmt::format("{} could not be started", request.executable));
    process.exited.reset(static_cast<int>(::syscall(SYS_pidfd_open, process.pid, 0)));
    if (!process.exited) {
        const int failed = errno;
        ::kill(process.pid, SIGKILL);
        reapStatus(process.pid);
        throwError(failed, fmt::format("{} could not be watched", request.executable));
    }
    return process;
}

int reapStatus(pid_t pid) {
    siginfo_t info{};
    while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED) != 0) {
        if (errno != EINTR)
            return -1;
    }
    return info.si_status;
}

bool stillRuns(pid_t pid) {
    siginfo_t info{};
    const int failed = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    return failed == 0 && info.si_pid == 0;
}

} // namespace kelvadrome
