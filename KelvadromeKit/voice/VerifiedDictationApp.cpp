#include "KelvadromeKit/voice/VerifiedDictationApp.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace kelvadrome {

bool VerifiedDictationApp::can(std::string_view action) const {
    const auto found = app.actions.find(std::string(action));
    if (found == app.actions.end())
        return false;
    const auto scheme = std::string_view(found->second).substr(0, found->second.find(':'));
    return std::ranges::find(schemes, scheme) != schemes.end();
}

namespace {

constexpr std::size_t largestPlist = 1 << 20; // bytes

using Plist = std::unique_ptr<void, decltype(&plist_free)>;

Plist parsePlist(const std::string& bytes) {
    plist_t root = nullptr;
    const auto size = static_cast<std::uint32_t>(bytes.size());
    if (plist_is_binary(bytes.data(), size)) {
        plist_from_bin(bytes.data(), size, &root);
    } else {
        plist_from_xml(bytes.data(), size, &root);
    }
    return Plist(root, plist_free);
}

/// Absent for a value of another type, and for none.
std::optional<std::string> stringOf(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    char* text = nullptr;
    plist_get_string_val(node, &text);
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    return text ? std::optional<std::string>(text) : std::nullopt;
}

std::vector<plist_t> itemsOf(plist_t node) {
    std::vector<plist_t> items;
    if (!node || plist_get_node_type(node) != PLIST_ARRAY)
        return items;
    const auto count = plist_array_get_size(node);
    for (std::uint32_t i = 0; i < count; ++i)
        items.push_back(plist_array_get_item(node, i));
    return items;
}

std::vector<std::string> schemesIn(plist_t info) {
    std::vector<std::string> schemes;
    for (const plist_t type : itemsOf(plist_dict_get_item(info, "CFBundleURLTypes"))) {
        if (plist_get_node_type(type) != PLIST_DICT)
            continue;
        for (const plist_t scheme : itemsOf(plist_dict_get_item(type, "CFBundleURLSchemes"))) {
            if (auto name = stringOf(scheme))
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
    const auto bytes = Files::read(Files::join(bundleURL, "Contents/Info.plist"), largestPlist);
    if (!bytes || bytes->empty())
        return std::nullopt;
    const auto info = parsePlist(*bytes);
    if (!info || plist_get_node_type(info.get()) != PLIST_DICT)
        return std::nullopt;
    const auto identifier = stringOf(plist_dict_get_item(info.get(), "CFBundleIdentifier"));
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
