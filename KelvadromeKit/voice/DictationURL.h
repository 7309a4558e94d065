#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// A dictation app of the user's that can be driven by URLs.
struct DictationURLApp {
    std::string id;
    std::string name;
    std::vector<std::string> bundleIds;
    std::vector<std::string> appNames;          // file names of its bundle
    std::optional<std::string> teamId;          // of the signature that the bundle must have
    std::vector<std::string> declared;          // the schemes that may be used
    std::map<std::string, std::string> actions; // "start" and so on, with the template of each URL

    static const DictationURLApp& superwhisper();
    static const DictationURLApp& spokenly();
    static const std::vector<DictationURLApp>& all();
    static std::optional<DictationURLApp> find(std::string_view id);

    bool operator==(const DictationURLApp&) const = default;
};

namespace DictationURL {

/// What may stand in a URL's place: lower-case letters, digits, "_" and "-", 1 to 64 of them.
bool validFill(std::string_view text);
/// The URL of an action; absent when the app has no such action, the fill is missing, out of place or not
/// valid, or the URL's scheme isn't one that the app declares.
std::optional<std::string> render(const DictationURLApp& app, std::string_view action,
    const std::optional<std::string>& fill = std::nullopt);

} // namespace DictationURL

} // namespace kelvadrome
