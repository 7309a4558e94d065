#include "KelvadromeKit/capture/ShotFolder.h"

#include "KelvadromeKit/capture/ShotID.h"
#include "KelvadromeKit/support/Files.h"

#include <array>
#include <cmath>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kelvadrome {

namespace {

constexpr mode_t ownerOnly = 0700;
constexpr mode_t ownerReads = 0600;
constexpr std::string_view ending = ".png";
constexpr std::array<unsigned char, 8> signature{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

std::string fileName(const std::string& id) {
    return id + std::string(ending);
}

bool isShotName(std::string_view name) {
    if (!name.ends_with(ending) || name.find('/') != name.npos)
        return false;
    name.remove_suffix(ending.size());
    return ShotID::isValid(name);
}

/// Of the opened folder. Read to the end before anything is removed.
std::vector<std::string> entries(int folder) {
    struct Close {
        void operator()(DIR* stream) const { ::closedir(stream); }
    };
    const int copy = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, Close> stream(copy < 0 ? nullptr : ::fdopendir(copy));
    std::vector<std::string> names;
    if (!stream) {
        if (copy >= 0)
            ::close(copy);
        return names;
    }
    while (const auto* const entry = ::readdir(stream.get()))
        names.emplace_back(entry->d_name);
    return names;
}

bool isRegular(int folder, const std::string& name, struct stat& status) {
    return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
}

Descriptor openFile(int folder, const std::string& id) {
    // Without O_NONBLOCK a pipe that was put there would hold us for ever.
    return Descriptor(::openat(folder, fileName(id).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
}

} // namespace

std::string ShotFolder::path() const {
    return Files::join(home, "shots");
}

std::string ShotFolder::file(const std::string& id) const {
    return Files::join(path(), fileName(id));
}

Descriptor ShotFolder::open() const {
    return Descriptor(::open(path().c_str(), O_RDONLY | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
}

void ShotFolder::ensure() const {
    const auto place = path();
    struct stat status {};
    if (::lstat(place.c_str(), &status) == 0) {
        if (!S_ISDIR(status.st_mode))
            throw ScreenContextError();
    } else {
        Files::makeFolders(place, ownerOnly);
    }
    auto folder = open();
    // One that its owner may not read can't be opened before its mode is set.
    if (!folder && errno == EACCES &&
        ::fchmodat(AT_FDCWD, place.c_str(), ownerOnly, AT_SYMLINK_NOFOLLOW) == 0)
        folder = open();
    if (!folder) {
        if (errno == ELOOP || errno == ENOTDIR) // swapped since
            throw ScreenContextError();
        fail(place);
    }
    if (::fchmod(folder.get(), ownerOnly) != 0)
        fail(place);
}

int ShotFolder::prune(WallTime cutoff) const {
    const auto folder = open();
    if (!folder)
        return 0;
    const auto until = std::floor(cutoff.time_since_epoch().count());
    int removed = 0;
    for (const auto& name : entries(folder.get())) {
        struct stat status {};
        if (!isShotName(name) || !isRegular(folder.get(), name, status))
            continue;
        if (static_cast<double>(status.st_mtim.tv_sec) < until &&
            ::unlinkat(folder.get(), name.c_str(), 0) == 0)
            ++removed;
    }
    return removed;
}

void ShotFolder::discard(const CapturedShot& shot) const {
    if (!ShotID::isValid(shot.id) || shot.path != file(shot.id))
        return;
    const auto folder = open();
    struct stat status {};
    if (folder && isRegular(folder.get(), fileName(shot.id), status))
        ::unlinkat(folder.get(), fileName(shot.id).c_str(), 0);
}

std::optional<ShotFolder::Written> ShotFolder::written(const std::string& id) const {
    const auto folder = open();
    struct stat status {};
    if (!folder || ::fstatat(folder.get(), fileName(id).c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    if (!S_ISREG(status.st_mode))
        return Written{};
    return Written{static_cast<std::int64_t>(status.st_size)};
}

bool ShotFolder::isPNG(const std::string& id) const {
    const auto folder = open();
    const auto file = openFile(folder.get(), id);
    std::array<unsigned char, signature.size()> head{};
    return file && ::pread(file.get(), head.data(), head.size(), 0) == static_cast<ssize_t>(head.size()) &&
           head == signature;
}

void ShotFolder::setPrivate(const std::string& id) const {
    const auto folder = open();
    const auto file = openFile(folder.get(), id);
    if (file)
        (void)::fchmod(file.get(), ownerReads);
}

void ShotFolder::remove(const std::string& id) const {
    const auto folder = open();
    if (folder)
        ::unlinkat(folder.get(), fileName(id).c_str(), 0);
}

} // namespace kelvadrome
