#include "KelvadromeKit/support/LogFile.h"

#include "KelvadromeKit/support/Descriptor.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvadrome::LogFile {

namespace {

constexpr off_t mostRead = 16384; // bytes

} // namespace

void makeRoom(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_size > largest)
        ::rename(path.c_str(), (path + ".1").c_str());
}

off_t length(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) ? info.st_size : 0;
}

std::string textAfter(const std::string& path, off_t from) {
    // Without O_NONBLOCK a pipe put in the file's place would hold this thread for ever.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info {};
    if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return {};
    const auto start = std::max(info.st_size < from ? 0 : from, info.st_size - mostRead);
    std::string text(static_cast<std::size_t>(std::max<off_t>(info.st_size - start, 0)), '\0');
    const auto count = ::pread(file.get(), text.data(), text.size(), start);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
}

} // namespace kelvadrome::LogFile
