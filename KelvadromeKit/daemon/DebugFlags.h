#pragma once

#include "KelvadromeKit/daemon/NavSection.h"
#include "KelvadromeKit/support/Defaults.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kelvadrome {

/// Launch-time switches, read from the defaults once a process: they drive a run without touching its
/// interface.
struct DebugFlags {
    std::optional<std::string> home;        // KDHome: overrides the data home
    std::optional<std::int64_t> port;       // KDPort: a string, such as "+8080"
    std::optional<std::string> appearance;  // KDAppearance: "dark", "light" or "system"
    bool notifications = true;              // KDNotifications: true unless set
    bool openPanel = false;                 // KDOpenPanel
    std::optional<std::string> settingsTab; // KDOpenSettings
    std::optional<NavSection> section;      // KDSection
    bool inspector = false;                 // KDInspector
    bool onboarding = false;                // KDOnboarding
    bool openBar = false;                   // KDOpenBar
    std::optional<std::string> barText;     // KDBarText
    bool quietWindows = false;              // KDQuiet

    static DebugFlags read(const Defaults& defaults);
    /// The process's flags: read on the first call and never again. Any thread.
    static const DebugFlags& current(const Defaults& defaults);

    bool operator==(const DebugFlags&) const = default;
};

} // namespace kelvadrome
