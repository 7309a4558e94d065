#include "Kelvadrome/model/BarKeyRows.h"

#include "KelvadromeKit/delivery/ShellLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace kelvadrome {

namespace {

std::string stateOf(const BarKeyState& key) {
    if (!key.possible)
        return "No program can have a key of its own on this display. Bind the command below instead.";
    if (!key.outcome)
        return "One moment.";
    switch (key.outcome->kind) {
    case HotkeyOutcome::Kind::registered:
        return "Opens the bar wherever you are, and closes it again. Option is Alt, Command is Super.";
    case HotkeyOutcome::Kind::taken:
        return "Taken by another app";
    case HotkeyOutcome::Kind::failed:
        break;
    }
    return fmt::format("The system refused it ({}). Bind the command below instead.", key.outcome->status);
}

} // namespace

SettingsGroup barKeyRows(const BarKeyState& key, const SettingsFacts::Place& place) {
    SettingsRow registered{
        .id = SettingsId::barKey, .title = "Command bar key", .detail = stateOf(key), .value = key.label};
    SettingsRow command{.id = SettingsId::barCommand,
        .title = "A key of your desktop's",
        .detail = "Bind this command in your desktop's keyboard settings: " + barCommand(place),
        .control = SettingsRow::Press{"Copy Command"}};
    return {"bar", "Command bar", "Ask an agent or search, wherever you are.",
        {std::move(registered), std::move(command)}};
}

std::string barCommand(const SettingsFacts::Place& place) {
    const auto& path = place.executable;
    const bool plain = std::ranges::all_of(path, [](unsigned char c) {
        return std::isalnum(c) || std::string_view("/._-").contains(static_cast<char>(c));
    });
    return (plain ? path : ShellLine::quote(path)) + " --bar";
}

} // namespace kelvadrome
