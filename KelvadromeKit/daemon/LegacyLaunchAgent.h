#pragma once

#include "KelvadromeKit/support/Clock.h"

#include <string>

namespace kelvadrome {

/// The hand-written launchd agent that older versions installed. Blocks; any thread.
struct LegacyLaunchAgent {
    static constexpr const char* label = "com.kelvadrome.daemon";

    std::string path;

    static LegacyLaunchAgent inHome(const std::string& userHome);

    /// A regular file at `path` (no link) is a property list, XML or binary, whose "Label" is ours.
    bool isPresent() const;
    /// Moves the file to a new folder under storageRoot/backups, with a note beside it, and gives the
    /// folder's path. Throws std::system_error when the file couldn't be moved; it is then where it was.
    std::string moveToBackup(const std::string& storageRoot, WallTime now) const;
    /// Where moveToBackup put the file.
    static std::string backedUpFile(const std::string& folder);

    bool operator==(const LegacyLaunchAgent&) const = default;
};

} // namespace kelvadrome
