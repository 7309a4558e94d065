#pragma once

#include <optional>
#include <string>

namespace kelvadrome {

/// This program's own file, links followed; where its new version lies once an update has replaced it.
std::string executablePath();

/// Where the daemon's files and Node are: "resources" beside the executable, else "../share/kelvadrome" of
/// its folder.
std::optional<std::string> resourceDirectory(const std::string& executable);

/// The folder that holds the application's icons as the theme "hicolor": "resources/icons" beside the
/// executable, else "../share/icons" of its folder.
std::optional<std::string> iconDirectory(const std::string& executable);

} // namespace kelvadrome
