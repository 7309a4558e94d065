#include "KelvadromeKit/support/FileLock.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <thread>

namespace kelvadrome {

namespace {

constexpr auto pause = std::chrono::milliseconds(10);

} // namespace

FileLock::FileLock(const std::string& path, double limit)
    : file_(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    const auto fail = [&](int error) {
        throw std::system_error(error, std::generic_category(), path + " could not be locked");
    };
    if (!file_)
        fail(errno);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    // A blocking wait could be ended by nothing but a signal.
    while (::flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            fail(errno);
        if (std::chrono::steady_clock::now() >= deadline)
            fail(ETIMEDOUT);
        std::this_thread::sleep_for(pause);
    }
}

} // namespace kelvadrome
