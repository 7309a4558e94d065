#include "tests/support/Squatter.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvadrome::test {

namespace {

constexpr uid_t nobody = 65534;

/// What the child does. Only system calls: the process that forked has threads.
[[noreturn]] void squat(int listener, int report) {
    for (;;) {
        const int peer = ::accept(listener, nullptr, nullptr);
        if (peer < 0)
            ::_exit(1);
        (void)!::write(report, "+", 1);
        if (::fork() != 0) {
            ::close(peer);
            continue;
        }
        char buffer[4096];
        for (;;) {
            const auto count = ::read(peer, buffer, sizeof buffer);
            if (count <= 0)
                ::_exit(0);
            (void)!::write(report, buffer, static_cast<std::size_t>(count));
        }
    }
}

void check(bool done, const char* what) {
    if (!done)
        throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

} // namespace

bool Squatter::canBe(User user) {
    return user == User::own || ::geteuid() == 0;
}

Squatter::Squatter(User user, std::uint16_t port) {
    Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    check(::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "bind");
    socklen_t size = sizeof address;
    ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    // The socket is its maker's: made here it would be this user's.
    if (user == User::other)
        check(::fchown(listener.get(), nobody, nobody) == 0, "fchown");
    run(user, std::move(listener));
}

Squatter::Squatter(User user, const std::string& socketPath) {
    Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    check(::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "bind");
    run(user, std::move(listener));
}

Squatter::~Squatter() {
    // The whole group: each connection has a process of its own.
    ::kill(-pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

void Squatter::run(User user, Descriptor listener) {
    int ends[2];
    check(::pipe2(ends, O_CLOEXEC) == 0, "pipe");
    report_.reset(ends[0]);
    Descriptor in(ends[1]);
    pid_ = ::fork();
    check(pid_ >= 0, "fork");
    if (pid_ == 0) {
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::signal(SIGCHLD, SIG_IGN);
        const bool became =
            user == User::own || (::setgroups(0, nullptr) == 0 && ::setresgid(nobody, nobody, nobody) == 0 &&
                                     ::setresuid(nobody, nobody, nobody) == 0);
        if (!became || ::listen(listener.get(), 8) != 0)
            ::_exit(1);
        (void)!::write(in.get(), "+", 1); // it listens
        squat(listener.get(), in.get());
    }
    ::setpgid(pid_, pid_);
    in.reset();
    char ready = 0;
    check(::read(report_.get(), &ready, 1) == 1, "a squatter");
    ::fcntl(report_.get(), F_SETFL, O_NONBLOCK);
}

const std::string& Squatter::taken() {
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(report_.get(), buffer, sizeof buffer)) > 0)
        taken_.append(buffer, static_cast<std::size_t>(count));
    return taken_;
}

} // namespace kelvadrome::test
