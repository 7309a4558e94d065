#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <string>
#include <sys/types.h>

/// The system calls of one connection.
namespace kelvadrome::UnixSocket {

/// A socket for `path`, not connected yet. Throws TransportError: socketPathTooLong before any system call,
/// connectFailed.
Descriptor make(const std::string& path);

/// 0, or the errno; EACCES when the listener is of another user, root excepted. Waits while the listener's
/// backlog is full.
int connect(const Descriptor& socket, const std::string& path);

/// The process at the other end of a connected socket: the one that listens there. 0 where the kernel can't
/// name it here.
pid_t peer(const Descriptor& socket);

/// Bounds each later connect, read and write by itself; 0 seconds means no bound.
void setTimeout(const Descriptor& socket, double seconds);

} // namespace kelvadrome::UnixSocket
