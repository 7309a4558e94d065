#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Reads Claude's question whether a folder can be trusted from the text of a screen.
namespace kelvadrome::TrustScreen {

struct Match {
    std::string selected;    // "trust" or "exit"
    bool trustFirst = false; // "Yes, I trust this folder" stands above "No, exit", and not below it

    /// The key that leads from the selection to `want`, "trust" or "exit": "up" or "down", or "enter" where
    /// that is selected.
    std::string_view keyTowards(std::string_view want) const;

    bool operator==(const Match&) const = default;
};

/// The question at the very end of the screen, when it is there beyond doubt, in exactly one of the orders in
/// which Claude has drawn its options, and names `folder`; no folder leaves the path untested. `home` lets
/// the screen write it as "~".
std::optional<Match> match(std::string_view screen, const std::optional<std::string>& folder,
    const std::optional<std::string>& home);

/// The line carries the selection mark.
bool marked(std::string_view line);
/// The line without its mark and number.
std::string_view body(std::string_view line);
/// The text without any white space.
std::string squash(std::string_view text);

} // namespace kelvadrome::TrustScreen
