#include "Kelvadrome/platform/linux/process/PosixChild.h"

#include "Kelvadrome/platform/linux/process/PosixCommand.h"
#include "Kelvadrome/platform/linux/process/PosixSpawn.h"
#include "KelvadromeKit/support/Files.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <thread>

namespace kelvadrome {

namespace {

/// The process itself. A signal and the reaping never overlap, so that no signal goes to a stranger's id.
class Reapable {
public:
    explicit Reapable(SpawnedProcess process) : process_(std::move(process)) {}

    pid_t pid() const { return process_.pid; }
    int exited() const { return process_.exited.get(); }

    bool isRunning() const {
        std::lock_guard guard(lock_);
        return !reaped_ && stillRuns(process_.pid);
    }
    void signal(int number) const {
        std::lock_guard guard(lock_);
        if (!reaped_)
            ::kill(process_.pid, number);
    }
    int reap() {
        std::lock_guard guard(lock_);
        reaped_ = true;
        return reapStatus(process_.pid);
    }

private:
    const SpawnedProcess process_;
    mutable std::mutex lock_;
    bool reaped_ = false;
};

class PosixChild final : public ChildProcess {
public:
    PosixChild(std::shared_ptr<Reapable> process, Descriptor input)
        : process_(std::move(process)), input_(std::move(input)) {}

    bool isRunning() const override { return process_->isRunning(); }
    std::int32_t pid() const override { return process_->pid(); }
    void terminate() override { process_->signal(SIGTERM); }
    void kill() override { process_->signal(SIGKILL); }
    void closeInput() override {
        std::lock_guard guard(lock_);
        input_.reset();
    }

private:
    const std::shared_ptr<Reapable> process_;
    std::mutex lock_;
    Descriptor input_;
};

} // namespace

class PosixChildLauncher::Watcher {
public:
    Watcher() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!wake_)
            throw std::system_error(errno, std::generic_category(), "Children could not be watched");
        // Signals are for the threads that await them; a new thread inherits the mask.
        sigset_t all;
        sigset_t before;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before);
        thread_ = std::thread([this] { watch(); });
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    ~Watcher() {
        {
            std::lock_guard guard(lock_);
            closing_ = true;
        }
        ring();
        thread_.join();
    }

    void add(std::shared_ptr<Reapable> process, Descriptor output, Callbacks callbacks) {
        {
            std::lock_guard guard(lock_);
            arrived_.push_back({std::move(process), std::move(output), std::move(callbacks)});
        }
        ring();
    }

private:
    struct Child {
        std::shared_ptr<Reapable> process;
        Descriptor output;
        Callbacks callbacks;
    };

    void ring() { ::eventfd_write(wake_.get(), 1); }

    void watch() {
        std::vector<Child> children;
        while (takeArrived(children)) {
            std::vector<pollfd> waits = {{wake_.get(), POLLIN, 0}};
            for (const auto& child : children) {
                waits.push_back({child.process->exited(), POLLIN, 0});
                waits.push_back({child.output.get(), POLLIN, 0}); // skipped by poll once it is closed
            }
            if (::poll(waits.data(), waits.size(), -1) < 0)
                continue;
            std::size_t place = 1;
            std::erase_if(children, [&](Child& child) {
                const bool dead = waits[place].revents != 0;
                const bool wrote = waits[place + 1].revents != 0;
                place += 2;
                // A dead child's last words come before its exit.
                if ((wrote || dead) && child.output)
                    readOutput(child, dead);
                if (dead)
                    child.callbacks.exited(child.process->reap());
                return dead;
            });
        }
    }

    bool takeArrived(std::vector<Child>& children) {
        eventfd_t count = 0;
        ::eventfd_read(wake_.get(), &count);
        std::lock_guard guard(lock_);
        for (auto& child : arrived_)
            children.push_back(std::move(child));
        arrived_.clear();
        return !closing_;
    }

    /// One chunk, or all that is there by now. A grandchild that keeps writing can't hold this up for ever.
    static void readOutput(Child& child, bool all) {
        std::array<char, 65536> buffer{};
        for (int chunk = 0; chunk == 0 || (all && chunk < 64); ++chunk) {
            const auto count = ::read(child.output.get(), buffer.data(), buffer.size());
            if (count > 0) {
                child.callbacks.output(std::string(buffer.data(), static_cast<std::size_t>(count)));
                continue;
            }
            if (count == 0)
                child.output.reset();
            return;
        }
    }

    Descriptor wake_;
    std::mutex lock_;
    std::vector<Child> arrived_;
    bool closing_ = false;
    std::thread thread_; // last: it uses what is above
};

PosixChildLauncher::PosixChildLauncher() : watcher_(std::make_unique<Watcher>()) {}
PosixChildLauncher::~PosixChildLauncher() = default;

std::shared_ptr<ChildProcess> PosixChildLauncher::launch(Command command, Callbacks callbacks) {
    auto input = Pipe::make();
    auto output = Pipe::make();
    auto process = spawnProcess({.executable = std::move(command.executable),
        .arguments = std::move(command.arguments),
        .environment = std::move(command.environment),
        .currentDirectory = std::move(command.currentDirectory),
        .standardInput = input.readEnd.get(),
        .standardOutput = output.writeEnd.get(),
        .standardError = output.writeEnd.get()});
    ::fcntl(output.readEnd.get(), F_SETFL, O_NONBLOCK);
    auto reapable = std::make_shared<Reapable>(std::move(process));
    watcher_->add(reapable, std::move(output.readEnd), std::move(callbacks));
    return std::make_shared<PosixChild>(std::move(reapable), std::move(input.writeEnd));
}

std::optional<std::string> PosixChildLauncher::output(
    std::string executable, std::vector<std::string> arguments, double limit) {
    auto result = runCommand(executable, arguments, Files::processEnvironment(), limit);
    if (result.timedOut || result.status < 0)
        return std::nullopt;
    return std::move(result.output);
}

} // namespace kelvadrome
