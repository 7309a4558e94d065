#include "KelvadromeKit/delivery/TerminalAccessRow.h"

namespace kelvadrome::TerminalAccessRow {

Content content(TerminalApp app, AutomationStatus status, bool appRunning, bool asking,
    const std::optional<std::string>& note) {
    const std::string appName(name(app));
    Content row;
    row.note = note;
    switch (status) {
    case AutomationStatus::granted:
        row.text = "Allowed";
        break;
    case AutomationStatus::denied:
        row.note = "You said no. Turn kelvadrome on for " + appName + " in Privacy and Security, Automation.";
        row.button = "Open System Settings";
        row.press = Content::Press::openSettings;
        break;
    case AutomationStatus::notDetermined:
        row.button = asking ? "Waiting for your answer" : "Allow";
        row.press = asking ? Content::Press::nothing : Content::Press::request;
        break;
    case AutomationStatus::unknown:
        row.text = appRunning ? "Not known yet" : "Open " + appName + " first";
        break;
    }
    return row;
}

std::optional<std::string> noteAfter(const AutomationPrompter::RequestResult& result) {
    using Kind = AutomationPrompter::RequestResult::Kind;
    switch (result.kind) {
    case Kind::screenLocked:
        return "Unlock the Mac first: macOS shows its question only on an unlocked screen.";
    case Kind::alreadyAsking:
        return "macOS is asking you now. Answer its window.";
    case Kind::status:
        break;
    }
    return std::nullopt;
}

} // namespace kelvadrome::TerminalAccessRow
