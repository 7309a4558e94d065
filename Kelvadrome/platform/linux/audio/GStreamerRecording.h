#pragma once

#include "KelvadromeKit/voice/AudioSource.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

typedef struct _GstElement GstElement;
typedef struct _GstMessage GstMessage;

namespace kelvadrome {

/// Sets GStreamer up, once a process; false when it can't be. Reads its list of plugins, so not for the main
/// thread.
bool prepareGStreamer();

/// One opening of the microphone. All that may hang with a sound server is done on a thread of its own, which
/// holds this object, and for which nobody waits.
class GStreamerRecording : public std::enable_shared_from_this<GStreamerRecording> {
public:
    /// Empty once something was heard, otherwise why nothing will be.
    using Opened = std::function<void(std::string problem)>;

    GStreamerRecording(AudioSource::Heard heard, AudioSource::Lost lost);

    /// Once. `opened` comes from any thread, perhaps more than once: the first word counts.
    void begin(Opened opened);
    /// No callback runs once this has returned, except `opened` with a problem. Not from a callback.
    void close();

private:
    static constexpr std::chrono::seconds silenceLimit{3}; // a microphone in a quiet room sends zeros

    void run();
    void watch();
    void take(std::span<const std::int16_t> samples);
    void lookAtDevice();
    void fail(std::string problem);
    static int received(void* sink, void* self);
    static int told(void* bus, GstMessage* message, void* self);
    GstElement* makePipeline();

    Opened opened_; // set before there are other threads
    // Held while a callback runs, so that closing waits for it.
    std::mutex lock_;
    std::condition_variable wake_;
    AudioSource::Heard heard_;
    AudioSource::Lost lost_;
    bool closed_ = false;
    std::uint64_t buffers_ = 0;
    std::optional<std::string> problem_;
    std::once_flag firstLook_;
    std::string device_;           // that was heard first
    GstElement* source_ = nullptr; // the pipeline's
};

} // namespace kelvadrome
