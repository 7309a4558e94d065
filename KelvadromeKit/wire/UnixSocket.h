#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <string>

/// The system calls of one connection.
namespace kelvadrome::UnixSocket {

/// A socket for `path`, not connected yet. Throws TransportError: socketPathTooLong before any system call,
/// connectFailed.
Descriptor make(const std::string& path);

/// 0, or the errno. Waits while the listener's backlog is full.
int connect(const Descriptor& socket, const std::string& path);

/// Bounds each later connect, read and write by itself; 0 seconds means no bound.
void setTimeout(const Descriptor& socket, double seconds);

} // namespace kelvadrome::UnixSocket
