#include "KelvadromeKit/daemon/LegacyLaunchAgent.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/ISO8601.h"
#include "KelvadromeKit/support/Log.h"
#include "KelvadromeKit/support/PropertyList.h"

#include <fmt/format.h>

#include <ctime>
#include <sys/stat.h>
#include <system_error>

namespace kelvadrome {

namespace {

struct LocalTime {
    std::string date; // yyyy-MM-dd
    std::string time; // HHmmss
};

LocalTime localTime(WallTime now) {
    const auto instant = static_cast<std::time_t>(now.time_since_epoch().count());
    std::tm parts{};
    ::localtime_r(&instant, &parts);
    return {fmt::format("{:04}-{:02}-{:02}", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday),
        fmt::format("{:02}{:02}{:02}", parts.tm_hour, parts.tm_min, parts.tm_sec)};
}

std::string note(WallTime now) {
    return "Moved here by kelvadrome " + formatISO8601(now) +
           " when the daemon became a login item of kelvadrome.app (D-126).\n"
           "The file was the LaunchAgent that scripts/install/install.sh wrote to ~/Library/LaunchAgents "
           "before 0.2.2.\n"
           "It is kept as a record. Putting it back would show the daemon under the certificate holder's "
           "name again.\n";
}

} // namespace

LegacyLaunchAgent LegacyLaunchAgent::inHome(const std::string& userHome) {
    return {Files::join(userHome, "Library/LaunchAgents/com.kelvadrome.daemon.plist")};
}

bool LegacyLaunchAgent::isPresent() const {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    const auto agent = PropertyList::readDictionary(path);
    return agent && PropertyList::string(plist_dict_get_item(agent.get(), "Label")) == label;
}

std::string LegacyLaunchAgent::moveToBackup(const std::string& storageRoot, WallTime now) const {
    const auto [date, time] = localTime(now);
    const auto first = Files::join(storageRoot, fmt::format("backups/{}/loginitem-{}", date, time));
    auto folder = first;
    for (int number = 1; Files::exists(folder); ++number)
        folder = fmt::format("{}-{}", first, number);
    Files::makeFolders(folder, 0700);
    Files::move(path, backedUpFile(folder));
    try {
        Files::replace(Files::join(folder, "README.txt"), note(now), 0600, false);
    } catch (const std::system_error& error) {
        // The file is safe where it is now; failing for want of a note would leave it neither here nor there.
        logLine(error.what());
    }
    return folder;
}

std::string LegacyLaunchAgent::backedUpFile(const std::string& folder) {
    return Files::join(folder, "com.kelvadrome.daemon.plist");
}

} // namespace kelvadrome
