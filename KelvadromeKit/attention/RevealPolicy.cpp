#include "KelvadromeKit/attention/RevealPolicy.h"

#include "KelvadromeKit/support/Text.h"

#include <set>
#include <vector>

namespace kelvadrome::RevealPolicy {

namespace {

const std::set<std::string, std::less<>> bundleExtensions = {"app", "bundle", "framework", "plugin", "kext",
    "pkg", "mpkg", "command", "workflow", "prefpane", "saver", "xpc", "appex"};

constexpr std::size_t maxCharacters = 1024;

/// "." and ".." resolved by their names, as the disk isn't asked.
std::vector<std::string_view> standardComponents(std::string_view path) {
    std::vector<std::string_view> components;
    for (const auto piece : Text::split(path, '/', Text::EmptyPieces::drop)) {
        if (piece == ".")
            continue;
        if (piece != "..") {
            components.push_back(piece);
        } else if (!components.empty()) {
            components.pop_back();
        }
    }
    return components;
}

bool isBundle(std::string_view component) {
    const auto dot = component.rfind('.');
    // A name that only begins with a dot has no extension.
    return dot != std::string_view::npos && dot > 0 &&
           bundleExtensions.contains(Text::lowercased(component.substr(dot + 1)));
}

} // namespace

std::optional<std::string> allowed(std::string_view path) {
    if (!path.starts_with('/') || path.find('\0') != std::string_view::npos)
        return std::nullopt;
    if (Text::characterCount(path) > maxCharacters)
        return std::nullopt;
    std::string standard;
    for (const auto component : standardComponents(path)) {
        if (isBundle(component))
            return std::nullopt;
        standard.append("/").append(component);
    }
    return standard.empty() ? "/" : standard;
}

} // namespace kelvadrome::RevealPolicy
