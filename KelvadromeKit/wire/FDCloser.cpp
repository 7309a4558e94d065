#include "KelvadromeKit/wire/FDCloser.h"

#include <sys/socket.h>

namespace kelvadrome {

void FDCloser::close() {
    std::lock_guard guard(lock_);
    if (std::exchange(closed_, true))
        return;
    ::shutdown(fd_.get(), SHUT_RDWR);
    fd_.reset();
}

bool FDCloser::closed() const {
    std::lock_guard guard(lock_);
    return closed_;
}

} // namespace kelvadrome
