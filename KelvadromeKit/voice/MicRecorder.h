#pragma once

#include "KelvadromeKit/voice/AudioSource.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kelvadrome {

/// Collects what the microphone hears, up to a limit. Main executor; ends the recording when it goes away.
class MicRecorder : public std::enable_shared_from_this<MicRecorder> {
public:
    static constexpr std::size_t limit = 120 * voiceSampleRate; // samples

    /// How an open recording came to its end, or should. Each may come on an audio thread, more than once and
    /// until `stop` has returned.
    struct Ends {
        std::function<void()> onLimit; // there is no room for more
        std::function<void()> onLost;  // the device went away
    };

    static std::shared_ptr<MicRecorder> make(std::shared_ptr<AudioSource> source);
    MicRecorder(const MicRecorder&) = delete;
    MicRecorder& operator=(const MicRecorder&) = delete;
    ~MicRecorder();

    /// Nothing when one runs or is about to. Throws what the source throws. `stop` while it opens takes it
    /// back: `running` is then false when this ends.
    Task<> start(Ends ends);
    /// All that was heard, which is taken; empty when nothing runs.
    std::vector<std::int16_t> stop();
    bool running() const { return running_; }

private:
    struct Heap;
    explicit MicRecorder(std::shared_ptr<AudioSource> source);
    static Task<> open(std::shared_ptr<MicRecorder> self, Ends ends);

    std::shared_ptr<AudioSource> source_;
    std::shared_ptr<Heap> heap_; // of the recording that runs or opens; shared with the audio thread
    bool running_ = false;
    bool opening_ = false; // the source hasn't answered yet, for this recording or one that was taken back
};

} // namespace kelvadrome
