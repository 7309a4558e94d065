// Stands in a pane and writes down every byte that it reads, and as whom. What the process table calls it is
// the name of its file, and its folder holds it under other names too. In raw mode, but for "silent":
//   NAME LOG WHO agent [menu | FOLDER MARKED ABOVE]
//                                       echoes like an agent's prompt; first it asks to choose from a menu,
//                                       or whether FOLDER can be trusted, with the option "exit" or "trust"
//                                       marked, and one of them above the other
//   NAME LOG WHO shell PROGRAM WORD...  runs the program in the foreground, and reads when that ends or stops
//   NAME LOG WHO reader                 only reads
//   NAME LOG WHO menu                   shows a choice and draws nothing of what is typed
//   NAME LOG WHO silent                 leaves the line to the terminal, which hides it: a password prompt
//   NAME                                waits for its end
// The log has a line for each event: WHO PID EVENT [WORD] NANOSECONDS, where EVENT is ready, read, chose or
// unable.

#include "KelvadromeKit/support/Descriptor.h"

#include "tests/live/keystrokes/Orders.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <linux/sched.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace kelvadrome::test {
namespace {

using Words = std::vector<std::string>;

void show(std::string_view text) {
    (void)!::write(STDOUT_FILENO, text.data(), text.size());
}

[[noreturn]] void become(const Words& words) {
    std::vector<char*> pointers;
    for (const auto& word : words)
        pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
}

/// A child with this pid, or with any when it is 0; as fork. Another's pid takes privileges.
pid_t forkAs(pid_t pid) {
    if (pid == 0)
        return ::fork();
    clone_args how{};
    how.exit_signal = SIGCHLD;
    how.set_tid = reinterpret_cast<std::uint64_t>(&pid);
    how.set_tid_size = 1;
    return static_cast<pid_t>(::syscall(SYS_clone3, &how, sizeof how));
}

class Recorder {
public:
    explicit Recorder(Words words)
        : words_(std::move(words)), role_(words_[3]), folder_(words_[0].substr(0, words_[0].rfind('/') + 1)),
          who_(words_[2]), log_(::open(words_[1].c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
        sigset_t heard;
        ::sigemptyset(&heard);
        ::sigaddset(&heard, orderSignal());
        ::sigaddset(&heard, SIGCHLD);
        ::sigprocmask(SIG_SETMASK, &heard, nullptr);
        signals_.reset(::signalfd(-1, &heard, SFD_CLOEXEC));
        ::signal(SIGTTOU, SIG_IGN);
        ::signal(SIGTTIN, SIG_IGN);
        ::signal(SIGTSTP, SIG_IGN);
    }

    int run() {
        if (role_ == "shell") {
            startJob(Words(words_.begin() + 4, words_.end()));
        } else {
            asks_ = words_.size() > 5;
            menu_ = words_.size() == 5;
            trust_ = asks_ && words_[5] == "trust";
            trustFirst_ = asks_ && words_[6] == "trust";
            open();
        }
        while (true) {
            pollfd both[]{{signals_.get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
            const bool listens = foreground_ == 0;
            if (::poll(both, listens ? 2 : 1, -1) < 0)
                return 1;
            if (both[0].revents != 0)
                takeSignal();
            else if (!readSome())
                return 0;
        }
    }

private:
    void note(std::string_view event, std::string_view word = {}) {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        const auto line = fmt::format("{} {} {}{}{} {}\n", who_, ::getpid(), event, word.empty() ? "" : " ",
            word, now.tv_sec * 1'000'000'000LL + now.tv_nsec);
        (void)!::write(log_.get(), line.data(), line.size());
    }

    /// Begins to read. What was typed before is not thrown away: the worst that the next reader can do.
    void open() {
        termios mode{};
        ::tcgetattr(STDIN_FILENO, &mode);
        if (role_ == "silent")
            mode.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        else
            ::cfmakeraw(&mode);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &mode);
        if (role_ == "agent")
            draw();
        if (role_ == "menu")
            show("Go on?\r\n> Yes\r\n  No");
        note("ready");
    }

    void draw() {
        show("\033[2J\033[H");
        if (menu_)
            return show(fmt::format(
                "Which one?\r\n\r\n❯ 1. {}\r\n  2. {}\r\n\r\nEsc to cancel", colours_[0], colours_[1]));
        if (!asks_)
            return show("> ");
        const char* const options[]{"No, exit", "Yes, I trust this folder"};
        const bool below = trust_ != trustFirst_; // the mark is on the second line
        show(fmt::format("Accessing workspace:\r\n\r\n{}\r\n\r\nQuick safety check: is this "
                         "yours?\r\n\r\n{}1. {}\r\n{}2. {}\r\n\r\nEnter to confirm - Esc to cancel\r\n",
            words_[4], below ? "  " : "> ", options[trustFirst_], below ? "> " : "  ",
            options[!trustFirst_]));
    }

    bool readSome() {
        char bytes[4096];
        const auto size = ::read(STDIN_FILENO, bytes, sizeof bytes);
        if (size <= 0)
            return size < 0 && errno == EINTR;
        const std::string_view keys(bytes, static_cast<std::size_t>(size));
        std::string hex;
        for (const unsigned char byte : keys)
            hex += fmt::format("{:02x}", byte);
        note("read", hex);
        return role_ != "agent" || (menu_ ? pick(keys) : asks_ ? choose(keys) : echo(keys));
    }

    bool echo(std::string_view keys) {
        std::string drawn;
        for (const char key : keys) {
            if (key == '\r')
                drawn += "\r\n> ";
            else if (key == '\033')
                drawn += "\r\033[K> ";
            else
                drawn += key;
        }
        show(drawn);
        return true;
    }

    bool pick(std::string_view keys) {
        if (keys.front() == '1' || keys.front() == '2') {
            note("chose", colours_[static_cast<std::size_t>(keys.front() - '1')]);
            menu_ = false;
            draw();
        }
        return true;
    }

    bool choose(std::string_view keys) {
        while (!keys.empty() && asks_) {
            if (keys.starts_with("\033[A") || keys.starts_with("\033[B")) {
                trust_ = (keys[2] == 'B') != trustFirst_;
                keys.remove_prefix(3);
            } else {
                if (keys.front() == '\r') {
                    note("chose", trust_ ? "trust" : "exit");
                    asks_ = false;
                    draw();
                    if (!trust_)
                        return false;
                }
                keys.remove_prefix(1);
            }
        }
        draw();
        return true;
    }

    void takeSignal() {
        signalfd_siginfo signal{};
        if (::read(signals_.get(), &signal, sizeof signal) != sizeof signal)
            return;
        if (signal.ssi_signo == SIGCHLD)
            return lookAtChild();
        obey(static_cast<Order>(signal.ssi_int));
    }

    void lookAtChild() {
        int status = 0;
        if (foreground_ == 0 || ::waitpid(foreground_, &status, WNOHANG | WUNTRACED) != foreground_)
            return;
        foreground_ = 0;
        ::tcsetpgrp(STDIN_FILENO, ::getpgrp());
        open();
    }

    void obey(Order order) {
        switch (order) {
        case Order::becomeAgent:
            become({folder_ + "claude", words_[1], "second", "agent"});
        case Order::becomeShell:
            become({folder_ + "bash", words_[1], "shell", "reader"});
        case Order::startReader:
            return startReader("python3");
        case Order::startEditor:
            show("\033[?1049h\033[2J\033[H~\r\n~\r\n");
            return startReader("vim");
        case Order::startJob:
            return startJob({folder_ + "make", words_[1], "job", "reader"});
        case Order::leaveQuestion:
            asks_ = menu_ = false;
            who_ = "later";
            draw();
            return note("ready");
        case Order::changeOptions:
            trust_ = !trust_;
            std::swap(colours_[0], colours_[1]);
            draw();
            return note("ready");
        case Order::replaceAgent:
        case Order::reusePid:
            return secondAgent(order == Order::reusePid);
        }
    }

    /// In the recorder's own group, and so in the foreground with it.
    void startReader(const std::string& name) {
        foreground_ = ::fork();
        if (foreground_ == 0)
            become({folder_ + name, words_[1], name, "reader"});
    }

    void startJob(Words program, pid_t as = 0) {
        const pid_t child = forkAs(as);
        if (child < 0)
            return note("unable");
        if (child == 0) {
            ::setpgid(0, 0);
            ::tcsetpgrp(STDIN_FILENO, ::getpid());
            become(program);
        }
        ::setpgid(child, child);
        foreground_ = child;
    }

    void secondAgent(bool samePid) {
        const pid_t first = foreground_;
        ::kill(first, SIGKILL);
        while (::waitpid(first, nullptr, 0) == first) {
        }
        foreground_ = 0;
        Words program(words_.begin() + 4, words_.end());
        program[2] = "second";
        startJob(std::move(program), samePid ? first : 0);
    }

    const Words words_;
    const std::string role_;
    const std::string folder_;
    std::string who_;
    Descriptor log_;
    Descriptor signals_;
    pid_t foreground_ = 0; // a child that has the terminal now
    bool menu_ = false;
    std::string colours_[2]{"Red", "Blue"}; // the menu's options
    bool asks_ = false;
    bool trust_ = false;      // is marked
    bool trustFirst_ = false; // stands above the other
};

} // namespace
} // namespace kelvadrome::test

int main(int count, char** words) {
    if (count == 1)
        return ::pause();
    return kelvadrome::test::Recorder({words, words + count}).run();
}
