#include "Kelvadrome/platform/linux/audio/GStreamerRecording.h"

#include "Kelvadrome/glib/GLibOwned.h"
#include "KelvadromeKit/support/Log.h"

#include <fmt/format.h>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <thread>

namespace kelvadrome {

namespace {

constexpr const char* kinds[] = {"pulsesrc", "pipewiresrc", "alsasrc"};
constexpr gint64 segment = 10'000;    // microseconds from one reading of the device to the next
constexpr gint64 backlog = 2'000'000; // what the source keeps when this machine is too busy to read it
constexpr guint queued = 200;         // buffers; a full queue holds the source up and drops nothing

using OwnedSample = std::unique_ptr<GstSample, GLibRelease<gst_sample_unref>>;
using OwnedCaps = std::unique_ptr<GstCaps, GLibRelease<gst_caps_unref>>;

void setIfThere(GstElement* element, const char* property, auto value) {
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(element), property))
        g_object_set(element, property, value, nullptr);
}

/// The first source that opens. GStreamer's own choice, autoaudiosrc, falls back on one that makes silence.
GstElement* openSource() {
    for (const auto* const kind : kinds) {
        auto* const source = gst_element_factory_make(kind, nullptr);
        if (!source)
            continue;
        setIfThere(source, "client-name", "Kelvadrome"); // as the sound settings show it
        setIfThere(source, "latency-time", segment);
        setIfThere(source, "buffer-time", backlog);
        if (gst_element_set_state(source, GST_STATE_READY) != GST_STATE_CHANGE_FAILURE)
            return source;
        gst_element_set_state(source, GST_STATE_NULL);
        gst_object_unref(source);
    }
    return nullptr;
}

/// Which device a sound server lets it hear; empty where that can't be told.
std::string deviceOf(GObject* source) {
    char* name = nullptr;
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(source), "current-device"))
        g_object_get(source, "current-device", &name, nullptr);
    const OwnedText owned(name);
    return name ? name : "";
}

std::string words(GstMessage* message) {
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    const OwnedError owned(error);
    return error->message;
}

} // namespace

bool prepareGStreamer() {
    static const bool ready = [] {
        GError* error = nullptr;
        const bool done = gst_init_check(nullptr, nullptr, &error);
        const OwnedError owned(error);
        if (!done)
            logLine(fmt::format("no GStreamer: {}", error ? error->message : "unknown"));
        return done;
    }();
    return ready;
}

GStreamerRecording::GStreamerRecording(AudioSource::Heard heard, AudioSource::Lost lost)
    : heard_(std::move(heard)), lost_(std::move(lost)) {}

void GStreamerRecording::begin(Opened opened) {
    opened_ = std::move(opened);
    std::thread([self = shared_from_this()] { self->run(); }).detach();
}

void GStreamerRecording::close() {
    {
        std::lock_guard guard(lock_);
        closed_ = true;
        heard_ = nullptr;
        lost_ = nullptr;
    }
    wake_.notify_all();
    if (opened_)
        opened_("it was closed");
}

void GStreamerRecording::run() {
    auto* const pipeline = prepareGStreamer() ? makePipeline() : nullptr;
    if (!pipeline) {
        opened_("no sound server and no sound card lets a microphone be opened");
        return;
    }
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        fail("the microphone does not start"); // unless its message came first
    watch();
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
}

GstElement* GStreamerRecording::makePipeline() {
    auto* const source = openSource();
    if (!source)
        return nullptr;
    // The source is asked for what we need: a sound server converts by itself, and the two in the middle then
    // have nothing to do.
    const OwnedCaps caps(
        gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, "S16LE", "rate", G_TYPE_INT,
            voiceSampleRate, "channels", G_TYPE_INT, 1, "layout", G_TYPE_STRING, "interleaved", nullptr));
    auto* const converter = gst_element_factory_make("audioconvert", nullptr);
    auto* const resampler = gst_element_factory_make("audioresample", nullptr);
    auto* const sink = gst_element_factory_make("appsink", nullptr);
    if (!converter || !resampler || !sink) {
        for (auto* const element : {source, converter, resampler, sink}) {
            if (!element)
                continue;
            gst_element_set_state(element, GST_STATE_NULL);
            gst_object_unref(element);
        }
        return nullptr;
    }
    g_object_set(sink, "caps", caps.get(), "sync", FALSE, "max-buffers", queued, "drop", FALSE, nullptr);
    source_ = source;
    g_signal_connect_swapped(source, "notify::current-device",
        G_CALLBACK(+[](GStreamerRecording* self) { self->lookAtDevice(); }), this);
    auto* const pipeline = gst_pipeline_new(nullptr);
    gst_bin_add_many(GST_BIN(pipeline), source, converter, resampler, sink, nullptr);
    gst_element_link_many(source, converter, resampler, sink, nullptr);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink* from, gpointer self) {
        return static_cast<GstFlowReturn>(received(from, self));
    };
    // The thread that holds this object ends after the pipeline, so it may be named by its address.
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, this, nullptr);
    auto* const bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(
        bus,
        [](GstBus* on, GstMessage* message, gpointer self) {
            return static_cast<GstBusSyncReply>(told(on, message, self));
        },
        this, nullptr);
    gst_object_unref(bus);
    return pipeline;
}

int GStreamerRecording::received(void* sink, void* self) {
    const OwnedSample sample(gst_app_sink_pull_sample(static_cast<GstAppSink*>(sink)));
    auto* const buffer = sample ? gst_sample_get_buffer(sample.get()) : nullptr;
    GstMapInfo bytes;
    if (!buffer || !gst_buffer_map(buffer, &bytes, GST_MAP_READ))
        return GST_FLOW_OK;
    auto& recording = *static_cast<GStreamerRecording*>(self);
    std::call_once(recording.firstLook_, [&recording] { recording.lookAtDevice(); });
    recording.take({reinterpret_cast<const std::int16_t*>(bytes.data), bytes.size / sizeof(std::int16_t)});
    gst_buffer_unmap(buffer, &bytes);
    return GST_FLOW_OK;
}

int GStreamerRecording::told(void*, GstMessage* message, void* self) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR)
        static_cast<GStreamerRecording*>(self)->fail(words(message));
    else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS)
        static_cast<GStreamerRecording*>(self)->fail("the microphone ended");
    gst_message_unref(message);
    return GST_BUS_DROP;
}

void GStreamerRecording::take(std::span<const std::int16_t> samples) {
    {
        std::lock_guard guard(lock_);
        if (closed_ || problem_)
            return;
        heard_(samples);
        if (buffers_++ > 0)
            return;
    }
    opened_("");
}

void GStreamerRecording::fail(std::string problem) {
    {
        std::lock_guard guard(lock_);
        if (!problem_)
            problem_ = std::move(problem);
    }
    wake_.notify_all();
}

/// A server whose microphone goes away moves its listeners to whatever else there is, which may be what the
/// machine plays.
void GStreamerRecording::lookAtDevice() {
    auto now = deviceOf(G_OBJECT(source_));
    std::unique_lock guard(lock_);
    if (device_.empty())
        device_ = std::move(now);
    else if (!now.empty() && now != device_) {
        guard.unlock();
        fail("its device was taken away");
    }
}

/// Until it is closed or fails. A server that stands still says nothing of it.
void GStreamerRecording::watch() {
    std::unique_lock guard(lock_);
    const auto over = [this] { return closed_ || problem_; };
    for (auto before = buffers_; !wake_.wait_for(guard, silenceLimit, over); before = buffers_) {
        if (before == buffers_ && buffers_ > 0)
            problem_ = "the microphone has nothing more to say";
    }
    if (closed_)
        return;
    logLine("microphone: " + *problem_);
    if (buffers_ > 0)
        lost_();
    const auto problem = *problem_;
    guard.unlock();
    opened_(problem);
}

} // namespace kelvadrome
