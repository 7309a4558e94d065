#pragma once

#include "KelvadromeKit/support/Task.h"

#include <optional>
#include <string>

namespace kelvadrome {

/// The connector through which a paired phone reaches the daemon. Main executor; never throws.
class RelayConnecting {
public:
    virtual ~RelayConnecting() = default;

    /// Asks the daemon whether the relay is wanted and starts or stops the connector accordingly.
    virtual Task<> startIfEnabled() = 0;
    /// Ends the connector. It stays ended until the next `startIfEnabled`.
    virtual void stop() = 0;
    /// Why it doesn't run although it should, for a person.
    virtual std::optional<std::string> lastError() const = 0;
};

/// Voice, as far as the model drives it. Main executor; never throws.
class VoiceControlling {
public:
    virtual ~VoiceControlling() = default;

    /// Reads the settings and routes again; `force` looks past what is still fresh.
    virtual Task<> refresh(bool force) = 0;
    /// A press on one of the page's voice controls.
    virtual Task<> pageAction(std::string action) = 0;
    /// For the application's end, while the daemon is still there: drops a recording, cancels what is under
    /// way, and waits a moment for the daemon to be told so.
    virtual Task<> finish() = 0;
};

} // namespace kelvadrome
