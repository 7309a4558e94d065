#include "Kelvadrome/platform/linux/core/Resources.h"

#include "KelvadromeKit/support/Files.h"

#include <filesystem>
#include <string_view>
#include <system_error>

namespace kelvadrome {

std::string executablePath() {
    constexpr std::string_view mark = " (deleted)"; // the kernel's, once an update has replaced the file
    std::error_code failed;
    auto path = std::filesystem::read_symlink("/proc/self/exe", failed).string();
    if (path.ends_with(mark) && !Files::exists(path))
        path.resize(path.size() - mark.size());
    return path;
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

std::optional<std::string> iconDirectory(const std::string& executable) {
    const auto folder = Files::parent(executable);
    for (const auto& place :
        {Files::join(folder, "resources/icons"), Files::join(Files::parent(folder), "share/icons")}) {
        if (Files::exists(Files::join(place, "hicolor/scalable/apps/com.kelvadrome.mac.svg")))
            return place;
    }
    return std::nullopt;
}

} // namespace kelvadrome
