#include "KelvadromeKit/voice/VerifiedDictationApp.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/PropertyList.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome {

bool VerifiedDictationApp::can(std::string_view action) const {
    const auto found = app.actions.find(std::string(action));
    if (found == app.actions.end())
        return false;
    const auto scheme = std::string_view(found->second).substr(0, found->second.find(':'));
    return std::ranges::find(schemes, scheme) != schemes.end();
}

namespace {

std::vector<std::string> schemesIn(plist_t info) {
    std::vector<std::string> schemes;
    for (const plist_t type : PropertyList::items(plist_dict_get_item(info, "CFBundleURLTypes"))) {
        if (plist_get_node_type(type) != PLIST_DICT)
            continue;
        for (const plist_t scheme : PropertyList::items(plist_dict_get_item(type, "CFBundleURLSchemes"))) {
            if (auto name = PropertyList::string(scheme))
                schemes.push_back(std::move(*name));
        }
    }
    return schemes;
}

bool holds(const std::vector<std::string>& all, const std::string& one) {
    return std::ranges::find(all, one) != all.end();
}

bool isInside(const std::string& path, const std::string& root) {
    return path.starts_with(Files::join(root, ""));
}

} // namespace

namespace BundleVerifier {

std::vector<std::string> defaultRoots(std::string_view home) {
    return {"/Applications", Files::join(home, "Applications"), "/Applications/Setapp"};
}

std::string expand(std::string_view path, std::string_view home) {
    return path.starts_with("~/") ? Files::join(home, path.substr(2)) : std::string(path);
}

std::optional<std::string> locate(const DictationURLApp& app, const std::vector<std::string>& roots) {
    for (const auto& named : roots) {
        const auto root = Files::canonical(named);
        for (const auto& name : app.appNames) {
            const auto candidate = Files::join(root, name);
            if (!Files::exists(candidate))
                continue;
            auto resolved = Files::canonical(candidate);
            if (isInside(resolved, root))
                return resolved;
        }
    }
    return std::nullopt;
}

std::optional<std::string> locateAt(
    const std::string& path, const DictationURLApp& app, const std::vector<std::string>& roots) {
    if (!path.starts_with('/') || !Files::exists(path))
        return std::nullopt;
    auto resolved = Files::canonical(path);
    if (!holds(app.appNames, std::string(Text::lastPathComponent(resolved))))
        return std::nullopt;
    const auto insideOf = [&](const auto& root) { return isInside(resolved, Files::canonical(root)); };
    return std::ranges::any_of(roots, insideOf) ? std::optional(std::move(resolved)) : std::nullopt;
}

std::optional<VerifiedDictationApp> verify(
    const DictationURLApp& app, const std::string& bundleURL, std::optional<bool> teamOK) {
    if (teamOK == false)
        return std::nullopt;
    const auto info = PropertyList::readDictionary(Files::join(bundleURL, "Contents/Info.plist"));
    if (!info)
        return std::nullopt;
    const auto identifier = PropertyList::string(plist_dict_get_item(info.get(), "CFBundleIdentifier"));
    if (!identifier || !holds(app.bundleIds, *identifier))
        return std::nullopt;
    auto schemes = schemesIn(info.get());
    std::erase_if(schemes, [&](const auto& scheme) { return !holds(app.declared, scheme); });
    if (schemes.empty())
        return std::nullopt;
    return VerifiedDictationApp{app, Files::canonical(bundleURL), std::move(schemes)};
}

} // namespace BundleVerifier

bool CodeSignature::teamMatches(const DictationURLApp& app, const std::string& bundleURL, const Read& read) {
    return app.teamId && read && read(bundleURL) == app.teamId;
}

} // namespace kelvadrome
