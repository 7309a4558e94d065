#pragma once

#include "KelvadromeKit/delivery/AutomationPrompter.h"

/// The words of the settings row that shows whether one terminal app may be scripted.
namespace kelvadrome::TerminalAccessRow {

struct Content {
    enum class Press { nothing, request, openSettings };

    std::string text;                // what is so; empty when the control says it all
    std::optional<std::string> note; // what to do about it
    std::string button;              // empty for none
    Press press = Press::nothing;    // what the button does

    bool operator==(const Content&) const = default;
};

/// Where `Press::openSettings` leads.
inline constexpr std::string_view settingsURL =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_Automation";

/// `asking` while the row's own request runs; `note` is what the last press left behind.
Content content(TerminalApp app, AutomationStatus status, bool appRunning, bool asking,
    const std::optional<std::string>& note);

/// The note that a finished request leaves behind; absent clears it.
std::optional<std::string> noteAfter(const AutomationPrompter::RequestResult& result);

} // namespace kelvadrome::TerminalAccessRow
