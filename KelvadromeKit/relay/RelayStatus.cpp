#include "KelvadromeKit/relay/RelayStatus.h"

namespace kelvadrome {

namespace {

constexpr double timeout = 10; // seconds

} // namespace

RelayStatus::Connector RelayStatus::Connector::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<bool>("connected"), object.optional<std::string>("last_seen"),
        object.optional<std::string>("error")};
}

RelayStatus::Mac RelayStatus::Mac::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("id"), object.required<std::string>("fingerprint")};
}

RelayStatus::Device RelayStatus::Device::decode(const JSONValue& value) {
    const auto object = value.object();
    return {.id = object.required<std::string>("id"),
        .name = object.required<std::string>("name"),
        .kind = object.required<std::string>("kind"),
        .fingerprint = object.required<std::string>("fingerprint"),
        .faceId = object.required<bool>("face_id"),
        .pairedAt = object.required<std::string>("paired_at"),
        .lastSeen = object.optional<std::string>("last_seen"),
        .revokedAt = object.optional<std::string>("revoked_at")};
}

RelayStatus::Pairing RelayStatus::Pairing::decode(const JSONValue& value) {
    const auto object = value.object();
    return {.id = object.required<std::string>("id"),
        .state = object.required<std::string>("state"),
        .expiresAt = object.required<std::string>("expires_at"),
        .phoneName = object.optional<std::string>("phone_name"),
        .fingerprint = object.optional<std::string>("fingerprint"),
        .error = object.optional<std::string>("error")};
}

RelayStatus RelayStatus::decode(const JSONValue& value) {
    const auto object = value.object();
    return {.enabled = object.required<bool>("enabled"),
        .connector = object.required<Connector>("connector"),
        .mac = object.optional<Mac>("mac"),
        .devices = object.required<std::vector<Device>>("devices"),
        .pairing = object.optional<Pairing>("pairing"),
        .relayUrl = object.required<std::string>("relay_url"),
        .appUrl = object.required<std::string>("app_url")};
}

RelayPairStart RelayPairStart::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("pairing_id"), object.required<std::string>("url"),
        object.required<std::string>("expires_at")};
}

namespace RelayCalls {

Task<RelayStatus> status(DaemonClient client) {
    return client.post<RelayStatus>("/v1/relay/status", {}, timeout);
}

Task<RelayStatus> enable(DaemonClient client, bool enabled) {
    return client.post<RelayStatus>("/v1/relay/enable", {{"enabled", enabled}}, timeout);
}

Task<RelayPairStart> startPairing(DaemonClient client) {
    return client.post<RelayPairStart>("/v1/relay/pair/start", {}, timeout);
}

Task<RelayStatus> decide(DaemonClient client, std::string pairingId, bool allow, std::string code) {
    return client.post<RelayStatus>("/v1/relay/pair/decide",
        {{"pairing_id", std::move(pairingId)}, {"allow", allow}, {"code", std::move(code)}}, timeout);
}

Task<RelayStatus> revoke(DaemonClient client, std::string deviceId) {
    return client.post<RelayStatus>("/v1/relay/device/revoke", {{"device_id", std::move(deviceId)}}, timeout);
}

} // namespace RelayCalls

} // namespace kelvadrome
