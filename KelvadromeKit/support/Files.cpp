#include "KelvadromeKit/support/Files.h"

#include "KelvadromeKit/support/Descriptor.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kelvadrome::Files {

namespace {

[[noreturn]] void throwError(int error, const std::string& path, const char* what) {
    throw std::system_error(error, std::generic_category(), fmt::format("{} {}", path, what));
}

bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const auto written = ::write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::optional<std::string> homeOf(const std::string& user) {
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    const int failed = user.empty()
                           ? ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found)
                           : ::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
    if (failed || !found || !found->pw_dir || !*found->pw_dir)
        return std::nullopt;
    return std::string(found->pw_dir);
}

} // namespace

std::string join(std::string_view folder, std::string_view rest) {
    while (folder.ends_with('/'))
        folder.remove_suffix(1);
    while (rest.starts_with('/'))
        rest.remove_prefix(1);
    return fmt::format("{}/{}", folder, rest);
}

std::string parent(std::string_view path) {
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return {};
    return std::string(slash == 0 ? "/" : path.substr(0, slash));
}

std::string userHome() {
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    return homeOf("").value_or("/");
}

std::string expandTilde(std::string_view path) {
    if (!path.starts_with('~'))
        return std::string(path);
    const auto slash = path.find('/');
    const auto user = path.substr(1, slash == std::string_view::npos ? slash : slash - 1);
    const auto home = user.empty() ? std::optional(userHome()) : homeOf(std::string(user));
    if (!home)
        return std::string(path);
    return slash == std::string_view::npos ? *home : join(*home, path.substr(slash));
}

std::string canonical(const std::string& path) {
    std::error_code failed;
    const auto whole = std::filesystem::absolute(path, failed).lexically_normal();
    if (failed)
        return path;
    auto resolved = std::filesystem::weakly_canonical(whole, failed);
    auto text = (failed ? whole : resolved).string();
    while (text.size() > 1 && text.ends_with('/'))
        text.pop_back();
    return text;
}

std::map<std::string, std::string> processEnvironment() {
    std::map<std::string, std::string> environment;
    for (char** entry = environ; entry && *entry; ++entry) {
        const std::string_view text(*entry);
        const auto equals = text.find('=');
        if (equals == std::string_view::npos)
            continue;
        environment.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
    return environment;
}

bool exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

bool isExecutable(const std::string& path) {
    return !isFolder(path) && ::access(path.c_str(), X_OK) == 0;
}

bool isFolder(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

void makeFolders(const std::string& path, mode_t mode) {
    if (isFolder(path))
        return;
    if (const auto above = parent(path); !above.empty() && above != path)
        makeFolders(above, mode);
    if (::mkdir(path.c_str(), mode) == 0) {
        // The umask may have taken bits away.
        if (::chmod(path.c_str(), mode) == 0)
            return;
    } else if (errno == EEXIST && isFolder(path)) {
        return;
    }
    throwError(errno == EEXIST ? ENOTDIR : errno, path, "could not be created");
}

std::optional<std::string> read(const std::string& path, std::size_t limit) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return std::nullopt;
    std::string text;
    char buffer[16384];
    while (true) {
        const auto count = ::read(file.get(), buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            return text;
        text.append(buffer, static_cast<std::size_t>(count));
        if (text.size() > limit) {
            errno = EFBIG;
            return std::nullopt;
        }
    }
}

void replace(const std::string& path, std::string_view text, mode_t mode, bool durable) {
    std::string name = path + ".XXXXXX";
    Descriptor file(::mkostemp(name.data(), O_CLOEXEC));
    if (!file)
        throwError(errno, path, "could not be written");
    const bool written = ::fchmod(file.get(), mode) == 0 && writeAll(file.get(), text) &&
                         (!durable || ::fsync(file.get()) == 0) && ::rename(name.c_str(), path.c_str()) == 0;
    if (written)
        return;
    const int error = errno;
    ::unlink(name.c_str());
    throwError(error, path, "could not be written");
}

void move(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return;
    // Some file systems don't know the flag.
    if (errno == EINVAL && !exists(to) && ::rename(from.c_str(), to.c_str()) == 0)
        return;
    if (errno != EXDEV)
        throwError(errno, from, "could not be moved");
    std::error_code failed;
    std::filesystem::copy_file(from, to, failed);
    if (failed && failed != std::errc::file_exists)
        ::unlink(to.c_str()); // half of it, perhaps
    if (failed)
        throwError(failed.value(), from, "could not be moved");
    if (::unlink(from.c_str()) == 0)
        return;
    const int error = errno;
    ::unlink(to.c_str());
    throwError(error, from, "could not be moved");
}

} // namespace kelvadrome::Files
