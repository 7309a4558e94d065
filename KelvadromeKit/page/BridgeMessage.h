#pragma once

#include "KelvadromeKit/attention/InterfaceMode.h"
#include "KelvadromeKit/support/JSON.h"

#include <optional>
#include <string>
#include <variant>

/// What the page tells the shell, parsed.
namespace kelvadrome::BridgeMessage {

struct Route {
    std::string route;
    bool operator==(const Route&) const = default;
};
struct Onboarding {
    std::optional<std::string> step;
    bool primaryEnabled = false;
    bool operator==(const Onboarding&) const = default;
};
struct RunSkill {
    std::string runId;
    std::string command;
    bool operator==(const RunSkill&) const = default;
};
struct Voice {
    std::string action;
    bool operator==(const Voice&) const = default;
};
struct Mode {
    InterfaceMode mode = InterfaceMode::simple;
    bool operator==(const Mode&) const = default;
};
struct Other {
    std::string type;
    std::optional<std::string> action;
    bool operator==(const Other&) const = default;
};
struct Ready {
    bool operator==(const Ready&) const = default;
};
struct ChooseFolder {
    bool operator==(const ChooseFolder&) const = default;
};
struct OnboardingDone {
    bool operator==(const OnboardingDone&) const = default;
};

using Message =
    std::variant<Route, Onboarding, RunSkill, Voice, Mode, Other, Ready, ChooseFolder, OnboardingDone>;

/// Total: what isn't understood is `Other`.
Message parse(const std::string& type, const JSONObject& body);

} // namespace kelvadrome::BridgeMessage
