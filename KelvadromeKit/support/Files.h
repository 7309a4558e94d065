#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

/// Paths and small file operations. All block; any thread.
namespace kelvadrome::Files {

/// "a" and "b/c" give "a/b/c": exactly one "/" between the two.
std::string join(std::string_view folder, std::string_view rest);
/// The text before the last "/"; "/" for what lies at the root, empty for a bare name.
std::string parent(std::string_view path);

/// The user's home directory: HOME, else what the user database says.
std::string userHome();
/// "~", "~/x" and "~name/x" with the home put in place; anything else, and an unknown name, as it is.
std::string expandTilde(std::string_view path);
/// The path from the root, with links followed as far as it exists and without ".", ".." and a last "/": one
/// name for each place, however it was written. Relative to the current folder.
std::string canonical(const std::string& path);
/// This process's environment.
std::map<std::string, std::string> processEnvironment();

/// Anything is at the path, links followed.
bool exists(const std::string& path);
/// A file, links followed, that this process may execute; a folder is none.
bool isExecutable(const std::string& path);
bool isFolder(const std::string& path);

/// Makes the folder and those above it that are missing, all of them with `mode`; a folder that is there
/// keeps its mode. Throws std::system_error that names the path.
void makeFolders(const std::string& path, mode_t mode);

/// A file of at most `limit` bytes; absent, with errno set, when it can't be read or is longer.
std::optional<std::string> read(const std::string& path, std::size_t limit);
/// Writes the file whole to a temporary name beside it and renames it into place, so that a reader sees the
/// old or the new text. `durable` waits for the disk. Throws std::system_error that names the path.
void replace(const std::string& path, std::string_view text, mode_t mode, bool durable);

/// Moves a file, across file systems too; what is at `to` already stays, and that is a failure. Throws
/// std::system_error that names the path; the file is then where it was.
void move(const std::string& from, const std::string& to);

} // namespace kelvadrome::Files
