#include "Kelvadrome/platform/linux/Resources.h"

#include "KelvadromeKit/support/Files.h"

#include <filesystem>
#include <system_error>

namespace kelvadrome {

std::string executablePath() {
    std::error_code failed;
    return std::filesystem::read_symlink("/proc/self/exe", failed).string();
}

std::optional<std::string> resourceDirectory(const std::string& executable) {
    const auto folder = Files::parent(executable);
    const auto beside = Files::join(folder, "resources");
    if (Files::isFolder(beside))
        return beside;
    const auto installed = Files::join(Files::parent(folder), "share/kelvadrome");
    if (Files::isFolder(installed))
        return installed;
    return std::nullopt;
}

} // namespace kelvadrome
