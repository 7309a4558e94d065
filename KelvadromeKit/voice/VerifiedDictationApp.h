#pragma once

#include "KelvadromeKit/voice/DictationURL.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// A dictation app that was proved to be the real one: the only thing that is ever driven.
struct VerifiedDictationApp {
    DictationURLApp app;
    std::string bundleURL;            // the path of its bundle, with links resolved
    std::vector<std::string> schemes; // those of `app.declared` that the bundle answers to

    bool can(std::string_view action) const;
    bool canStartStop() const { return can("start") && can("stop"); }

    bool operator==(const VerifiedDictationApp&) const = default;
};

/// All of it blocks; any thread.
namespace BundleVerifier {

/// Where bundles may be.
std::vector<std::string> defaultRoots(std::string_view home);
/// A leading "~/" resolved against `home`; any other path as it is.
std::string expand(std::string_view path, std::string_view home);
/// The app's bundle in the first root that has it; a link that leads out of its root is passed over.
std::optional<std::string> locate(const DictationURLApp& app, const std::vector<std::string>& roots);
/// The same for a place that somebody else named: absent unless a bundle of the app's name is there and lies
/// in one of the roots.
std::optional<std::string> locateAt(
    const std::string& path, const DictationURLApp& app, const std::vector<std::string>& roots);
/// Absent when `teamOK` is false, or the bundle doesn't say that it is the app and answers to one of its
/// schemes.
std::optional<VerifiedDictationApp> verify(
    const DictationURLApp& app, const std::string& bundleURL, std::optional<bool> teamOK);

} // namespace BundleVerifier

namespace CodeSignature {

/// The team that signed a bundle; absent where it isn't signed, the signature doesn't hold, or the system
/// knows of none. Blocks, any thread.
using Read = std::function<std::optional<std::string>(const std::string& bundleURL)>;

/// Whether the bundle is signed by the app's team; false for an app without one.
bool teamMatches(const DictationURLApp& app, const std::string& bundleURL, const Read& read);

} // namespace CodeSignature

} // namespace kelvadrome
