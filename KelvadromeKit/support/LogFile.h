#pragma once

#include <string>
#include <sys/types.h>

/// Log files that stay small however long they are written to.
namespace kelvadrome::LogFile {

inline constexpr off_t largest = 1 << 20; // bytes; one that is larger makes room for a new one

/// When the log at `path` is a plain file and larger than `largest`, it becomes `path` + ".1", in place of
/// the one that was there. Never fails: a log that can't be moved is written on.
void makeRoom(const std::string& path);

/// The length of the log in bytes; 0 when there is none.
off_t length(const std::string& path);

/// What was written to the log after its first `from` bytes, at most the last 16 KiB of it; what a log holds
/// that has become shorter since. Empty when it can't be read or is no plain file.
std::string textAfter(const std::string& path, off_t from);

} // namespace kelvadrome::LogFile
