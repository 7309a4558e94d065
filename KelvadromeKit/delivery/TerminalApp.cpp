#include "KelvadromeKit/delivery/TerminalApp.h"

#include "KelvadromeKit/delivery/LiveScripts.h"

namespace kelvadrome {

std::string_view rawValue(AutomationStatus status) {
    switch (status) {
    case AutomationStatus::granted:
        return "granted";
    case AutomationStatus::denied:
        return "denied";
    case AutomationStatus::notDetermined:
        return "notDetermined";
    case AutomationStatus::unknown:
        break;
    }
    return "unknown";
}

AutomationStatus automationStatusFrom(ConsentCode code) {
    if (code == 0)
        return AutomationStatus::granted;
    if (code == consentDenied)
        return AutomationStatus::denied;
    if (code == consentNotAsked)
        return AutomationStatus::notDetermined;
    return AutomationStatus::unknown;
}

std::string_view rawValue(TerminalApp app) {
    return app == TerminalApp::iterm2 ? "iterm2" : "terminal";
}

std::optional<TerminalApp> terminalAppFromRawValue(std::string_view text) {
    for (const auto app : allTerminalApps) {
        if (rawValue(app) == text)
            return app;
    }
    return std::nullopt;
}

std::string_view bundleId(TerminalApp app) {
    return app == TerminalApp::iterm2 ? LiveScripts::itermBundle : LiveScripts::terminalBundle;
}

std::string_view name(TerminalApp app) {
    return app == TerminalApp::iterm2 ? "iTerm2" : "Terminal";
}

std::string allowTitle(TerminalApp app) {
    return "Allow kelvadrome to type into " + std::string(name(app));
}

std::string allowDetail(TerminalApp app) {
    return "kelvadrome types the answer you press into the " + std::string(name(app)) +
           " tab of the agent that asked, and brings that tab to the front. It never reads what the terminal "
           "shows.";
}

} // namespace kelvadrome
