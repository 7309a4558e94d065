#pragma once

#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/voice/AudioSource.h"

#include <memory>

namespace kelvadrome {

class GStreamerRecording;

/// The microphone by GStreamer: PulseAudio, PipeWire or ALSA, whichever answers first, and there the device
/// that the user's sound settings name. Main executor. `stop` not from a callback: it waits for the one that
/// runs.
class GStreamerSource final : public AudioSource {
public:
    static constexpr double openLimit = 5;  // seconds
    static constexpr double stateLimit = 3; // seconds

    explicit GStreamerSource(std::shared_ptr<Clock> clock);
    ~GStreamerSource() override;
    GStreamerSource(const GStreamerSource&) = delete;
    GStreamerSource& operator=(const GStreamerSource&) = delete;

    /// A device is one that can hear. What a sound card plays can be recorded, too, and a sound server
    /// without a microphone offers that in its place: it doesn't count, whatever the settings name. Linux has
    /// no consent for the microphone, so it is always given. A server that doesn't answer has no device.
    Task<MicrophoneState> state() override;
    Task<bool> requestAccess() override;
    Task<> start(Heard heard, Lost lost) override;
    void stop() override;

private:
    const std::shared_ptr<Clock> clock_;
    std::shared_ptr<GStreamerRecording> recording_;
};

} // namespace kelvadrome
