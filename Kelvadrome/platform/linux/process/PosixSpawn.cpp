#include "Kelvadrome/platform/linux/process/PosixSpawn.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
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

/// The list that exec takes; the words stay where they are.
std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> result;
    for (auto& word : words) {
        if (word.contains('\0'))
            throwError(EINVAL, "A word with a zero byte would reach the child cut off");
        result.push_back(word.data());
    }
    result.push_back(nullptr);
    return result;
}

Pipe ofEnds(const int (&ends)[2]) {
    Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    return {aboveStandardStreams(std::move(readEnd)), aboveStandardStreams(std::move(writeEnd))};
}

} // namespace

Pipe Pipe::make() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throwError(errno, "A pipe could not be made");
    return ofEnds(ends);
}

Pipe Pipe::makeSocket() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throwError(errno, "A pipe could not be made");
    return ofEnds(ends);
}

SpawnedProcess::SpawnedProcess(pid_t pid)
    : pid_(pid), exited_(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))) {}

bool SpawnedProcess::isRunning() const {
    const std::lock_guard guard(lock_);
    siginfo_t info{};
    return !reaped_ && ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

void SpawnedProcess::signal(int number) const {
    signalUnlessReaped(pid_, number);
}

void SpawnedProcess::signalGroup(int number) const {
    signalUnlessReaped(-pid_, number);
}

void SpawnedProcess::signalUnlessReaped(pid_t whom, int number) const {
    const std::lock_guard guard(lock_);
    if (!reaped_)
        ::kill(whom, number);
}

int SpawnedProcess::reap() {
    // The wait itself holds no lock: a signal must be able to end it.
    siginfo_t info{};
    while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0) {
        if (errno != EINTR)
            return -1;
    }
    const std::lock_guard guard(lock_);
    reaped_ = true;
    ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG);
    return info.si_status;
}

std::shared_ptr<SpawnedProcess> spawnProcess(const SpawnRequest& request) {
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
    pid_t pid = 0;
    const int error = ::posix_spawn(&pid, request.executable.c_str(), actions.get(), attributes.get(),
        pointers(arguments).data(), pointers(environment).data());
    if (error != 0)
        throwError(error, fmt::format("{} could not be started", request.executable));
    return std::make_shared<SpawnedProcess>(pid);
}

} // namespace kelvadrome
