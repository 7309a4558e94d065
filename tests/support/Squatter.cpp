#include "tests/support/Squatter.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvadrome::test {

namespace {

namespace asio = boost::asio;

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
    using asio::ip::tcp;
    asio::io_context context;
    tcp::acceptor acceptor(context, tcp::v4());
    acceptor.set_option(tcp::acceptor::reuse_address(true));
    acceptor.bind({asio::ip::address_v4::loopback(), port});
    port_ = acceptor.local_endpoint().port();
    // The socket is its maker's: made here it would be this user's.
    if (user == User::other)
        check(::fchown(acceptor.native_handle(), nobody, nobody) == 0, "fchown");
    run(user, Descriptor(acceptor.release()));
}

Squatter::Squatter(User user, const std::string& socketPath) {
    using Local = asio::local::stream_protocol;
    asio::io_context context;
    Local::acceptor acceptor(context, Local());
    acceptor.bind(Local::endpoint(socketPath));
    run(user, Descriptor(acceptor.release()));
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
