#pragma once

#include "KelvadromeKit/support/JSON.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// What the daemon found on this machine to speak with.
struct VoiceScan {
    struct UrlControl {
        bool start = false, stop = false, mode = false;

        static UrlControl decode(const JSONValue& value);
        bool operator==(const UrlControl&) const = default;
    };
    struct Hotkey {
        std::string label, kind, source;

        static Hotkey decode(const JSONValue& value);
        bool operator==(const Hotkey&) const = default;
    };
    struct App {
        std::string id;
        std::string name;
        bool installed = false;
        bool running = false;
        std::optional<std::string> version;
        std::optional<std::string> path;
        std::optional<bool> teamOK; // the daemon's own look at the signature
        std::optional<UrlControl> urlControl;
        std::optional<Hotkey> hotkey; // the app's own key
        bool selected = false;

        static App decode(const JSONValue& value);
        bool operator==(const App&) const = default;
    };
    struct Builtin {
        std::optional<std::string> local; // "ready" when the daemon has a model of its own

        static Builtin decode(const JSONValue& value);
        bool operator==(const Builtin&) const = default;
    };

    std::string selected;
    std::string hint;
    std::vector<App> apps;
    std::optional<Builtin> builtin;

    bool localReady() const { return builtin && builtin->local == "ready"; }
    const App* app(std::string_view id) const;

    static VoiceScan decode(const JSONValue& value);
    bool operator==(const VoiceScan&) const = default;
};

} // namespace kelvadrome
