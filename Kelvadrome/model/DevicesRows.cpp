#include "Kelvadrome/model/DevicesRows.h"

#include <fmt/format.h>

namespace kelvadrome {

namespace {

using Row = SettingsRow;
using Group = SettingsGroup;
using Button = SettingsRow::Presses::One;

constexpr std::string_view unpairPrefix = "unpair-";

bool isOn(const DevicesState& state) {
    return state.status && state.status->enabled;
}

Group relay(const DevicesState& state) {
    Group group{"relay", "", "", {}};
    group.rows.push_back({.id = SettingsId::relay,
        .title = "Answer from your iPhone",
        .detail =
            "Cards reach your phone end-to-end encrypted. The relay cannot read them. Off: nothing leaves "
            "this Mac.",
        .control = Row::Toggle{isOn(state)},
        .enabled = state.status && !state.busy});
    if (state.error)
        group.rows.push_back(
            {.id = "relay-error", .title = *state.error, .symbol = "dialog-warning-symbolic"});
    if (isOn(state)) {
        const auto& connector = state.status->connector;
        group.rows.push_back({.id = "connection",
            .title = "Connection",
            .detail = state.connectorError.value_or(connector.connected ? "" : connector.error.value_or("")),
            .value = connector.connected ? "Connected" : "Connecting"});
    }
    if (state.status && state.status->mac)
        group.rows.push_back({.id = "mac-key", .title = "Mac key", .value = state.status->mac->fingerprint});
    return group;
}

Row pairButton(const DevicesState& state, std::string title, std::string words) {
    return {.id = SettingsId::pairPhone,
        .title = std::move(title),
        .control = Row::Press{std::move(words)},
        .enabled = isOn(state) && !state.busy};
}

std::vector<Row> waiting(const DevicesState& state) {
    std::vector<Row> rows;
    std::vector<Button> buttons;
    const bool offered = state.offer() && state.qr;
    if (offered) {
        rows.push_back({.id = "pairing-code",
            .title = "Pairing QR code",
            .detail =
                "Scan with your iPhone camera.\nThen add kelvadrome to the Home Screen when it asks, so "
                "notifications work.",
            .control = Row::Picture{"Pairing QR code", state.qr}});
        buttons.push_back({SettingsId::copyPairing, state.copied ? "Copied" : "Copy the code"});
    }
    buttons.push_back({SettingsId::pairPhone, "New code", !state.busy});
    rows.push_back({.id = "pairing-time",
        .title = fmt::format("Valid {} s, 1 phone.", state.secondsLeft()),
        .detail = offered ? "" : "Another window shows its QR code.",
        .control = Row::Presses{std::move(buttons)}});
    return rows;
}

std::vector<Row> joined(const DevicesState& state) {
    const auto& pairing = *state.status->pairing;
    const auto name = pairing.phoneName.value_or("");
    Row who{.id = "phone",
        .title = (name.empty() ? "A phone" : name) + " wants to pair.",
        .detail =
            "Type the 6 digits your phone shows. If your phone shows no code, press Decline: someone else "
            "used this QR code."};
    Row code{.id = SettingsId::phoneCode,
        .title = "6 digits",
        .control = Row::Field{.hint = "Code shown on the phone", .text = state.typedCode, .takesFocus = true},
        .enabled = !state.busy};
    Row decision{.id = "decision",
        .title = "Phone key " + pairing.fingerprint.value_or(""),
        .control = Row::Presses{{{SettingsId::declinePhone, "Decline"},
            {SettingsId::allowPhone, "Allow", state.mayAllow(), true}}},
        .enabled = !state.busy};
    return {std::move(who), std::move(code), std::move(decision)};
}

std::vector<Row> pairing(const DevicesState& state) {
    const auto now = state.pairingState().value_or("");
    if (now == "waiting")
        return waiting(state);
    if (now == "joined")
        return joined(state);
    if (now == "confirmed")
        return {pairButton(state, "Paired. The phone shows your Inbox now.", "Pair a phone")};
    if (now == "declined")
        return {pairButton(state, "Declined. That phone was not added.", "Pair a phone")};
    if (now == "failed")
        return {pairButton(
            state, state.status->pairing->error.value_or("Pairing failed. Start again."), "Pair a phone")};
    if (now == "expired")
        return {pairButton(state, "The code expired.", "New code")};
    auto row = pairButton(state, "A QR code for your phone's camera", "Pair a phone");
    if (isOn(state) && !state.status->connector.connected)
        row.detail = "Waiting for the relay connector.";
    return {std::move(row)};
}

Group paired(const DevicesState& state) {
    Group group{"paired", "Paired", "", {}};
    if (!state.status)
        return group;
    for (const auto& device : state.status->devices) {
        if (device.revokedAt)
            continue;
        group.rows.push_back({.id = SettingsId::unpair(device.id),
            .title = device.name.empty() ? "A phone" : device.name,
            .detail = device.faceId ? "Face ID on" : "No Face ID: high risk stays on the Mac",
            .control = Row::Press{"Unpair"},
            .enabled = !state.busy,
            .symbol = device.kind == "iphone" ? "phone-symbolic" : ""});
    }
    if (group.rows.empty())
        group.rows.push_back({.id = "none", .title = "No phone yet."});
    return group;
}

} // namespace

std::string SettingsId::unpair(const std::string& deviceId) {
    return std::string(unpairPrefix) + deviceId;
}

std::optional<std::string> SettingsId::unpaired(const std::string& id) {
    if (!id.starts_with(unpairPrefix))
        return std::nullopt;
    return id.substr(unpairPrefix.size());
}

std::vector<SettingsGroup> devicesPane(const DevicesState& state) {
    return {relay(state), {"pairing", "", "", pairing(state)}, paired(state),
        {"phone-can", "What the phone can do",
            "See the cards that need you, answer them with a hold and 5 s to change your mind, cancel a "
            "hold, send "
            "a request as a card. High-risk answers need Face ID. Restricted topics stay on the Mac. The "
            "phone "
            "cannot send, pay or delete anything.",
            {}}};
}

} // namespace kelvadrome
