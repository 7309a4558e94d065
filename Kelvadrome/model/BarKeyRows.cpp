#include "Kelvadrome/model/BarKeyRows.h"

#include "KelvadromeKit/delivery/ShellLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace kelvadrome {

namespace {

std::string failureOf(std::int32_t status) {
    switch (status) {
    case HotkeyStatus::refusedByUser:
        return "You told your desktop not to give this key.";
    case HotkeyStatus::noPortal:
        return "Your desktop gives no program a key of its own.";
    case HotkeyStatus::silentPortal:
        return "Your desktop was asked for the key and has not answered.";
    case HotkeyStatus::noDisplay:
        return "There is no display that could give the key.";
    case HotkeyStatus::noSuchKey:
        return "Your keyboard has no such key.";
    case HotkeyStatus::takenBack:
        return "Your desktop has taken the key back.";
    default:
        return fmt::format("The system refused it ({}).", status);
    }
}

std::string stateOf(const BarKeyState& key) {
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
    return failureOf(key.outcome->status) + " Bind the command below instead.";
}

/// Quoted only where it must be: a person reads it.
std::string shellWord(const std::string& text) {
    const bool plain = std::ranges::all_of(text, [](unsigned char c) {
        return std::isalnum(c) || std::string_view("/._-").contains(static_cast<char>(c));
    });
    return plain ? text : ShellLine::quote(text);
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
    auto command = shellWord(place.executable);
    if (place.ownHome) // without it another application would start, that of the standard home
        command += " -KDHome " + shellWord(place.dataHome);
    return command + " --bar";
}

} // namespace kelvadrome
