#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <mutex>

namespace kelvadrome {

/// Closes one socket exactly once, whichever thread asks first. Safe from any thread.
class FDCloser {
public:
    explicit FDCloser(Descriptor fd) : fd_(std::move(fd)) {}
    ~FDCloser() { close(); }
    FDCloser(const FDCloser&) = delete;
    FDCloser& operator=(const FDCloser&) = delete;

    /// Shuts the socket down both ways, which wakes a blocked read or write on it, and closes it.
    void close();
    bool closed() const;

private:
    mutable std::mutex lock_;
    Descriptor fd_;
    bool closed_ = false;
};

} // namespace kelvadrome
