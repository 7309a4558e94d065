#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace kelvadrome::test {

/// A process of its own that listens where the daemon would, takes what it is sent and answers nothing. It
/// ends with the object.
class Squatter {
public:
    enum class User {
        own,
        other, // needs root
    };
    static bool canBe(User user);

    /// On a port of 127.0.0.1; 0 for any that is free.
    Squatter(User user, std::uint16_t port);
    Squatter(User user, const std::string& socketPath);
    ~Squatter();
    Squatter(const Squatter&) = delete;
    Squatter& operator=(const Squatter&) = delete;

    std::uint16_t port() const { return port_; }
    pid_t pid() const { return pid_; }
    /// What it has taken so far: a "+" for each connection, and every byte that came over them.
    const std::string& taken();

private:
    void run(User user, Descriptor listener);

    std::uint16_t port_ = 0;
    pid_t pid_ = -1;
    Descriptor report_;
    std::string taken_;
};

} // namespace kelvadrome::test
