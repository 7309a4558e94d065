#pragma once

#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace kelvadrome {

/// Every recording of this system: signed 16-bit mono.
inline constexpr int voiceSampleRate = 16'000;

/// What is known of the machine's microphone.
struct MicrophoneState {
    bool inputDevice = false;
    std::optional<bool> authorized = {}; // absent until known

    bool operator==(const MicrophoneState&) const = default;
};

/// The machine's microphone. Called on the main executor.
class AudioSource {
public:
    /// Samples at `voiceSampleRate`, in order. Comes on an audio thread, and must be quick.
    using Heard = std::function<void(std::span<const std::int16_t>)>;
    /// The device went away while it was open: nothing more is heard. Comes on an audio thread, at most once.
    using Lost = std::function<void()>;

    virtual ~AudioSource() = default;

    /// How things are now, without opening the device. Never throws.
    virtual Task<MicrophoneState> state() = 0;
    /// Asks the user for the microphone where the system has it so; true when it may be opened. Never throws.
    virtual Task<bool> requestAccess() = 0;
    /// Opens the device. Samples may come before the task ends. Throws std::runtime_error, with words for a
    /// log, when it doesn't open within a limit. Not while it is open.
    virtual Task<> start(Heard heard, Lost lost) = 0;
    /// Closes it; harmless when it isn't open. Neither callback runs once this has returned, and what was
    /// captured up to the call has been given to `Heard`. Doesn't wait for the device.
    virtual void stop() = 0;
};

} // namespace kelvadrome
