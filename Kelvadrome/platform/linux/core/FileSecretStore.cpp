#include "Kelvadrome/platform/linux/core/FileSecretStore.h"

#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr std::size_t maxSecret = 64 * 1024; // bytes

bool isOwnRegularFile(const struct stat& info) {
    return S_ISREG(info.st_mode) && info.st_uid == ::geteuid();
}

} // namespace

FileSecretStore::FileSecretStore(std::string folder, std::string service, std::string account)
    : folder_(std::move(folder)), path_(Files::join(folder_, service + "." + account)) {}

std::string FileSecretStore::defaultFolder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    const std::string base =
        data && *data == '/' ? std::string(data) : Files::join(Files::userHome(), ".local/share");
    return Files::join(base, "kelvadrome/secrets");
}

void FileSecretStore::set(const std::string& value) {
    const auto trimmed = trimmedSecret(value);
    try {
        Files::makeFolders(folder_, 0700);
        if (::chmod(folder_.c_str(), 0700) != 0)
            throw std::system_error(errno, std::generic_category());
        Files::replace(path_, trimmed, 0600, true);
    } catch (const std::system_error& error) {
        throw SecretStoreError(error.code().value(), "save");
    }
}

std::optional<std::string> FileSecretStore::read() {
    const Descriptor file(::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
        if (errno == ENOENT || errno == ENOTDIR)
            return std::nullopt;
        throw SecretStoreError(errno, "read");
    }
    struct stat info {};
    if (::fstat(file.get(), &info) != 0 || !isOwnRegularFile(info))
        throw SecretStoreError(EACCES, "read");
    if ((info.st_mode & 0077) != 0)
        ::fchmod(file.get(), 0600);

    std::string text(maxSecret, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const auto count = ::read(file.get(), text.data() + size, text.size() - size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw SecretStoreError(errno, "read");
        if (count == 0)
            break;
        size += static_cast<std::size_t>(count);
    }
    text.resize(size);
    if (text.empty() || !Text::isValidUTF8(text))
        return std::nullopt;
    return text;
}

bool FileSecretStore::exists() {
    struct stat info {};
    return ::lstat(path_.c_str(), &info) == 0 && isOwnRegularFile(info) && info.st_size > 0;
}

void FileSecretStore::remove() {
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT && errno != ENOTDIR)
        throw SecretStoreError(errno, "delete");
}

} // namespace kelvadrome
