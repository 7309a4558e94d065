#include "KelvadromeKit/delivery/ProcessRunner.h"

#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace kelvadrome {

namespace {

using Instant = std::chrono::steady_clock::time_point;
constexpr int noLimit = -1;      // of poll
constexpr int graceMillis = 200; // for a child whose caller is gone

/// A descriptor above the standard three, so that moving it onto one of them can't hit another.
Descriptor aboveStandard(int fd) {
    Descriptor given(fd);
    if (fd > STDERR_FILENO)
        return given;
    return Descriptor(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

/// The reading end of a child's pipe: reads all there is, keeps the beginning.
class Drain {
public:
    explicit Drain(std::size_t limit) : limit_(limit) {}

    /// The writing end, which is the child's; none when no pipe could be made.
    Descriptor open() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return {};
        read_ = aboveStandard(ends[0]);
        return aboveStandard(ends[1]);
    }

    void readSome() {
        std::array<char, 65'536> buffer; // as much as a pipe holds
        const auto count = ::read(read_.get(), buffer.data(), buffer.size());
        if (count > 0) {
            kept_.append(buffer.data(), std::min(static_cast<std::size_t>(count), limit_ - kept_.size()));
        } else if (count == 0 || errno != EINTR) {
            read_.reset();
        }
    }

    bool holdsLine(const std::string& line) const { return ("\n" + kept_).contains("\n" + line + "\n"); }
    int descriptor() const { return read_.get(); }
    bool ended() const { return !read_; }
    std::string text() const { return Text::repairUTF8(kept_); }

private:
    Descriptor read_;
    std::size_t limit_;
    std::string kept_;
};

/// How a child begins: default signals, nothing blocked, the three standard descriptors and no other.
class SpawnPlan {
public:
    SpawnPlan(int input, int output, int errors) {
        sigset_t signals;
        ::posix_spawnattr_init(&attributes_);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

        ::posix_spawn_file_actions_init(&actions_);
        if (input < 0)
            ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        else
            ::posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO);
        ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }
    ~SpawnPlan() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    std::optional<pid_t> start(const char* path, char* const* arguments, char* const* environment) const {
        pid_t pid = 0;
        const int error = ::posix_spawn(&pid, path, &actions_, &attributes_, arguments, environment);
        return error == 0 ? std::optional(pid) : std::nullopt;
    }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

/// The null-terminated array that exec takes; the words stay where they are.
std::vector<char*> execVector(const std::string* first, const std::vector<std::string>& rest) {
    std::vector<char*> words;
    words.reserve(rest.size() + 2);
    if (first)
        words.push_back(const_cast<char*>(first->c_str()));
    for (const auto& word : rest)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    return words;
}

/// A word with a zero byte would reach the child cut off.
bool holdsZero(const RunCommand& command) {
    const auto zero = [](const std::string& word) { return word.find('\0') != std::string::npos; };
    return zero(command.path) || std::ranges::any_of(command.args, zero);
}

/// The input of a child that waits for it, on a socket: writing to one that has gone is no signal.
class Feed {
public:
    /// The child's end; none when the child is to have no input, or when none could be made.
    Descriptor open(std::shared_ptr<const LateInput> input) {
        int ends[2];
        input_ = std::move(input);
        if (!input_ || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            return {};
        write_ = aboveStandard(ends[0]);
        return aboveStandard(ends[1]);
    }
    const LateInput* wanted() const { return input_.get(); }

    void give() {
        const auto text = std::exchange(input_, nullptr)->give();
        std::string_view rest = text ? std::string_view(*text) : std::string_view();
        while (!rest.empty()) {
            const auto count = ::send(write_.get(), rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                break; // gone, or far behind: a command cut off is not carried out
            rest.remove_prefix(static_cast<std::size_t>(count));
        }
        write_.reset();
    }
    void end() {
        input_ = nullptr;
        write_.reset();
    }

private:
    std::shared_ptr<const LateInput> input_;
    Descriptor write_;
};

/// One child from start to end, on one thread. Until the end it isn't reaped, so its pid stays its own.
class Child {
public:
    bool start(const RunCommand& command, const std::vector<std::string>& environment) {
        if (holdsZero(command))
            return false;
        const auto input = feed_.open(command.input);
        const auto output = output_.open();
        const auto errors = errors_.open();
        if (!output || !errors || (command.input && !input))
            return false;
        const auto arguments = execVector(&command.path, command.args);
        const auto variables = execVector(nullptr, environment);
        const SpawnPlan plan(input.get(), output.get(), errors.get());
        const auto pid = plan.start(command.path.c_str(), arguments.data(), variables.data());
        if (!pid)
            return false;
        pid_ = *pid;
        pidfd_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
        return true;
    }

    /// Returns when both pipes are at their end and the child has ended, or soon after `stop` becomes
    /// readable.
    RunOutput finish(double timeout, int stop) {
        const auto deadline = std::chrono::steady_clock::now() +
                              std::chrono::ceil<Instant::duration>(std::chrono::duration<double>(timeout));
        bool pending = true; // the deadline is yet to come
        for (;;) {
            const bool drained = output_.ended() && errors_.ended();
            if (drained && reap())
                break;
            std::array<pollfd, 4> wait{{{output_.descriptor(), POLLIN, 0}, {errors_.descriptor(), POLLIN, 0},
                {drained ? pidfd_.get() : -1, POLLIN, 0}, {stop, POLLIN, 0}}};
            ::poll(wait.data(), wait.size(), millisUntil(deadline, pending, drained && !pidfd_));
            if (pending && std::chrono::steady_clock::now() >= deadline) {
                pending = false;
                timedOut_ = isRunning();
                if (timedOut_)
                    ::kill(pid_, SIGTERM);
                feed_.end();
            }
            if (wait[0].revents != 0)
                output_.readSome();
            if (feed_.wanted() && output_.holdsLine(feed_.wanted()->ready))
                feed_.give();
            else if (output_.ended())
                feed_.end();
            if (wait[1].revents != 0)
                errors_.readSome();
            if (wait[3].revents != 0) {
                abandon();
                break;
            }
        }
        return {status_, output_.text(), errors_.text(), timedOut_};
    }

private:
    static int millisUntil(Instant deadline, bool pending, bool mustAsk) {
        if (mustAsk)
            return 20; // no descriptor tells of the exit
        if (!pending)
            return noLimit;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
    }

    bool isRunning() const {
        siginfo_t info{};
        const int error = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
        return error == 0 && info.si_pid == 0;
    }

    /// True when the child has ended; its status is then known.
    bool reap() {
        int status = 0;
        const auto ended = ::waitpid(pid_, &status, WNOHANG);
        if (ended == pid_)
            status_ = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
        return ended != 0;
    }

    void abandon() {
        ::kill(pid_, SIGTERM);
        pollfd exit{pidfd_.get(), POLLIN, 0};
        ::poll(&exit, 1, graceMillis);
        reap();
    }

    pid_t pid_ = 0;
    Descriptor pidfd_;
    Feed feed_;
    Drain output_{ProcessRunner::keptOutput};
    Drain errors_{ProcessRunner::keptErrors};
    std::int32_t status_ = -1;
    bool timedOut_ = false;
};

} // namespace

ProcessRunner::ProcessRunner(BackgroundPool& pool, const std::map<std::string, std::string>& environment)
    : pool_(pool) {
    std::vector<std::string> words{"NO_COLOR=1"};
    for (const auto& [name, value] : environment) {
        if (name != "NO_COLOR")
            words.push_back(name + "=" + value);
    }
    environment_ = std::make_shared<const std::vector<std::string>>(std::move(words));
}

Task<RunOutput> ProcessRunner::run(RunCommand command, double timeout) {
    auto stop = std::make_shared<const Descriptor>(::eventfd(0, EFD_CLOEXEC));
    auto work = [command = std::move(command), environment = environment_, timeout, stop] {
        Child child;
        return child.start(command, *environment) ? child.finish(timeout, stop->get()) : RunOutput();
    };
    auto cancel = [stop] { ::eventfd_write(stop->get(), 1); };
    auto output = co_await attempt(pool_.run(std::move(work), std::move(cancel)));
    if (!output && !isCancellation(output.error()))
        co_return RunOutput(); // no thread to be had: it never started
    co_return output.take();
}

} // namespace kelvadrome
