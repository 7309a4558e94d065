#pragma once

#include "KelvadromeKit/relay/RelayStatus.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/GreyPicture.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// What the settings know of phones: what the daemon told last, and the attempt to pair one from here.
struct DevicesState {
    std::optional<RelayStatus> status = {};
    std::optional<RelayPairStart> pairing = {};            // begun here
    std::shared_ptr<const GreyPicture> qr = {};            // of its link
    std::optional<std::string> error = {};                 // why the last action failed
    bool busy = false;                                     // an action is under way
    WallTime now = {};                                     // of the last tick
    std::optional<RelayStatus::Device> confirmUnpair = {}; // the user is asked about it
    bool copied = false;                                   // the link, a moment ago
    std::optional<std::string> copiedCode = {};            // what was put on the pasteboard
    std::string typedCode = {};                            // at most six digits
    std::optional<std::string> connectorError = {};        // why the connector doesn't run

    /// Whole seconds that the attempt is still good for; 0 without one.
    std::int64_t secondsLeft() const;
    /// "waiting" and so on: the attempt's state, also while only this side knows of it; absent without one.
    std::optional<std::string> pairingState() const;
    /// The link to be scanned, while a phone may still join by it.
    const RelayPairStart* offer() const;
    /// Whether the typed code could be the phone's.
    bool mayAllow() const;

    bool operator==(const DevicesState&) const = default;
};

} // namespace kelvadrome
