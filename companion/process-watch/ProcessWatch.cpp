// Tells at once when a process ends, which Node can't; ends with its input. The daemon speaks in lines:
//   in   "PID START"  watch this process; START is when it started, as in /proc/PID/stat
//        "-PID"       no longer
//   out  "PID START"  it has ended, or another process has its number by now
// When the system lets it watch no more, it leaves, too, and the daemon looks by itself.
#include "KelvadromeKit/support/Descriptor.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <fstream>
#include <map>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <vector>

namespace {

struct Watched {
    kelvadrome::Descriptor process;
    unsigned long long start = 0;
};

std::map<pid_t, Watched> watched;

template <class Number>
std::optional<Number> number(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

/// The 22nd field of the process's line; the command before it may hold blanks and parentheses.
std::optional<unsigned long long> startOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    auto at = line.rfind(')');
    for (int field = 2; field < 22 && at != std::string::npos; ++field)
        at = line.find(' ', at + 1);
    if (at == std::string::npos)
        return std::nullopt;
    return number<unsigned long long>(std::string_view(line).substr(at + 1, line.find(' ', at + 1) - at - 1));
}

/// False when the daemon no longer reads.
bool tellEnd(pid_t pid, unsigned long long start) {
    const auto line = std::to_string(pid) + " " + std::to_string(start) + "\n";
    return ::write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

bool watch(pid_t pid, unsigned long long start) {
    kelvadrome::Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (!process)
        return errno == ESRCH && tellEnd(pid, start);
    // Asked only now: whoever has the number at this moment is who the descriptor is for, or comes after
    // them.
    if (startOf(pid) != start)
        return tellEnd(pid, start);
    watched.insert_or_assign(pid, Watched{std::move(process), start});
    return true;
}

/// One line of the daemon; one that says nothing known is passed over.
bool obey(std::string_view line) {
    if (line.starts_with('-')) {
        if (const auto pid = number<pid_t>(line.substr(1)))
            watched.erase(*pid);
        return true;
    }
    const auto blank = line.find(' ');
    if (blank == line.npos)
        return true;
    const auto pid = number<pid_t>(line.substr(0, blank));
    const auto start = number<unsigned long long>(line.substr(blank + 1));
    return !pid || !start || *pid <= 0 || watch(*pid, *start);
}

/// What has come is obeyed line by line, and the rest is kept; false at the end of input.
bool readLines(std::string& rest) {
    char bytes[4096];
    const auto count = ::read(STDIN_FILENO, bytes, sizeof bytes);
    if (count <= 0)
        return count < 0 && errno == EINTR;
    rest.append(bytes, static_cast<std::size_t>(count));
    for (auto end = rest.find('\n'); end != std::string::npos; end = rest.find('\n')) {
        if (!obey(std::string_view(rest).substr(0, end)))
            return false;
        rest.erase(0, end + 1);
    }
    return true;
}

/// Each process takes a descriptor, and the usual limit of 1024 is there for programs that use select.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

int main() {
    raiseDescriptorLimit();
    std::signal(SIGPIPE, SIG_IGN);
    for (std::string rest;;) {
        std::vector<pollfd> polled{{STDIN_FILENO, POLLIN, 0}};
        std::vector<pid_t> pids{0};
        for (const auto& [pid, one] : watched) {
            polled.push_back({one.process.get(), POLLIN, 0});
            pids.push_back(pid);
        }
        if (::poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR)
            return 1;
        for (std::size_t i = 1; i < polled.size(); ++i) {
            if (polled[i].revents == 0)
                continue;
            if (const auto ended = watched.extract(pids[i]); !tellEnd(pids[i], ended.mapped().start))
                return 0;
        }
        if (polled[0].revents != 0 && !readLines(rest))
            return 0;
    }
}
