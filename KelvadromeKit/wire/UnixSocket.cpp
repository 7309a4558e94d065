#include "KelvadromeKit/wire/UnixSocket.h"

#include "KelvadromeKit/wire/UnixSocketTransport.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace kelvadrome::UnixSocket {

namespace {

ucred credentials(const Descriptor& socket) {
    // What a socket of no known peer has: nobody's.
    ucred peer{0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
    socklen_t size = sizeof peer;
    ::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return peer;
}

} // namespace

Descriptor make(const std::string& path) {
    static_assert(UnixSocketTransport::maxPathBytes < sizeof(sockaddr_un::sun_path));
    if (path.size() > UnixSocketTransport::maxPathBytes)
        throw TransportError::socketPathTooLong(path.size());
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket)
        throw TransportError::connectFailed(errno);
    return socket;
}

int connect(const Descriptor& socket, const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    while (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        // A signal ends the wait for a full backlog, and nothing has been begun by then.
        if (errno != EINTR)
            return errno;
    }
    // Whoever made the folder first may listen in it, and secrets travel over this socket.
    const auto owner = credentials(socket).uid;
    return owner == ::geteuid() || owner == 0 ? 0 : EACCES;
}

pid_t peer(const Descriptor& socket) {
    return credentials(socket).pid;
}

void setTimeout(const Descriptor& socket, double seconds) {
    // What the caller means by a number beyond this is "for ever"; a cast of it would be undefined.
    const double bounded = std::clamp(seconds, 0.0, 1e9);
    const double whole = std::trunc(bounded);
    const timeval limit{static_cast<time_t>(whole), static_cast<suseconds_t>((bounded - whole) * 1'000'000)};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

} // namespace kelvadrome::UnixSocket
