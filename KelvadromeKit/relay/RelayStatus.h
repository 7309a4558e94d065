#pragma once

#include "KelvadromeKit/support/JSON.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// What the daemon tells of the relay: whether it is on, the phones that are paired, and the attempt to pair
/// one. Times are in ISO 8601.
struct RelayStatus {
    struct Connector {
        bool connected = false;
        std::optional<std::string> lastSeen = {};
        std::optional<std::string> error = {}; // why it isn't connected, for a person, where the daemon tells

        static Connector decode(const JSONValue& value);
        bool operator==(const Connector&) const = default;
    };
    /// This computer.
    struct Mac {
        std::string id;
        std::string fingerprint;

        static Mac decode(const JSONValue& value);
        bool operator==(const Mac&) const = default;
    };
    struct Device {
        std::string id;
        std::string name; // may be empty
        std::string kind; // "iphone", or another
        std::string fingerprint;
        bool faceId = false; // it can tell that its owner holds it
        std::string pairedAt;
        std::optional<std::string> lastSeen = {};
        std::optional<std::string> revokedAt = {};

        static Device decode(const JSONValue& value);
        bool operator==(const Device&) const = default;
    };
    struct Pairing {
        std::string id;
        std::string state; // "waiting", "joined", "confirmed", "declined", "failed", "expired"
        std::string expiresAt;
        std::optional<std::string> phoneName = {};
        std::optional<std::string> fingerprint = {}; // of the phone's key
        std::optional<std::string> error = {};       // for a person

        static Pairing decode(const JSONValue& value);
        bool operator==(const Pairing&) const = default;
    };

    bool enabled = false;
    Connector connector = {};
    std::optional<Mac> mac = {};
    std::vector<Device> devices = {};
    std::optional<Pairing> pairing = {};
    std::string relayUrl = {};
    std::string appUrl = {};

    static RelayStatus decode(const JSONValue& value);
    bool operator==(const RelayStatus&) const = default;
};

/// An attempt to pair that has just begun.
struct RelayPairStart {
    std::string pairingId;
    std::string url; // to be scanned; with the secret of the attempt, so never to be logged
    std::string expiresAt;

    static RelayPairStart decode(const JSONValue& value);
    bool operator==(const RelayPairStart&) const = default;
};

/// The daemon's routes for the relay. Each throws as every call of the client does.
namespace RelayCalls {

Task<RelayStatus> status(DaemonClient client);
Task<RelayStatus> enable(DaemonClient client, bool enabled);
Task<RelayPairStart> startPairing(DaemonClient client);
/// `code` is what the user typed; only an allowed phone needs it.
Task<RelayStatus> decide(DaemonClient client, std::string pairingId, bool allow, std::string code);
Task<RelayStatus> revoke(DaemonClient client, std::string deviceId);

} // namespace RelayCalls

} // namespace kelvadrome
