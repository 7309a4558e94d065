#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <atomic>
#include <string>
#include <thread>

namespace kelvadrome::bench {

/// Answers every connection on a Unix socket with the same bytes and closes it, as the daemon does. One
/// thread.
class LocalServer {
public:
    /// `body` is sent after a minimal head with its length.
    explicit LocalServer(std::string body);
    ~LocalServer();
    LocalServer(const LocalServer&) = delete;
    LocalServer& operator=(const LocalServer&) = delete;

    const std::string& path() const { return path_; }

private:
    void serve();

    std::string path_;
    std::string reply_;
    Descriptor listener_;
    std::atomic<bool> closing_ = false;
    std::thread thread_;
};

} // namespace kelvadrome::bench
