#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Reads Claude's question whether a folder can be trusted from the text of a screen.
namespace kelvadrome::TrustScreen {

struct Match {
    std::string selected; // "trust" or "exit"

    bool operator==(const Match&) const = default;
};

/// The question at the very end of the screen, when it is there beyond doubt and names `folder`; no folder
/// leaves the path untested. `home` lets the screen write it as "~".
std::optional<Match> match(std::string_view screen, const std::optional<std::string>& folder,
    const std::optional<std::string>& home);

/// The line carries the selection mark.
bool marked(std::string_view line);
/// The line without its mark and number.
std::string_view body(std::string_view line);
/// The text without any white space.
std::string squash(std::string_view text);

} // namespace kelvadrome::TrustScreen
