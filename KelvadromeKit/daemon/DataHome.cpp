#include "KelvadromeKit/daemon/DataHome.h"

#include "KelvadromeKit/daemon/DaemonEnvironment.h"
#include "KelvadromeKit/wire/UnixSocketTransport.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvadrome::DataHome {

namespace {

constexpr mode_t writableByOthers = S_IWGRP | S_IWOTH;

} // namespace

std::optional<std::string> refusal(const std::string& home) {
    const auto path = DaemonEnvironment(home, std::nullopt, std::nullopt).socketPath();
    if (path.size() > UnixSocketTransport::maxPathBytes) {
        return fmt::format("The path of the data home {} is too long: its socket would have {} bytes, and at "
                           "most {} are possible. Choose a home with a shorter path.",
            home, path.size(), UnixSocketTransport::maxPathBytes);
    }
    struct stat folder {};
    if (::stat(home.c_str(), &folder) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) // who makes it says what is in the way
            return std::nullopt;
        return fmt::format("The data home {} can't be looked at: {}.", home, std::strerror(errno));
    }
    if (!S_ISDIR(folder.st_mode))
        return fmt::format("The data home {} is not a folder.", home);
    if (folder.st_uid != ::geteuid())
        return fmt::format("The data home {} belongs to another user. Choose a home of your own.", home);
    if (folder.st_mode & writableByOthers) {
        return fmt::format("Other users may write to the data home {}. Nothing is sent to a daemon there. "
                           "If everything in it is yours, run: chmod 700 '{}'",
            home, home);
    }

    struct stat socket {};
    if (::lstat(path.c_str(), &socket) != 0)
        return std::nullopt;
    if (socket.st_uid != ::geteuid() && socket.st_uid != 0)
        return fmt::format("The socket {} belongs to another user. End what listens there first.", path);
    return std::nullopt;
}

} // namespace kelvadrome::DataHome
