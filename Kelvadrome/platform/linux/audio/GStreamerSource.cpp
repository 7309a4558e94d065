#include "Kelvadrome/platform/linux/audio/GStreamerSource.h"

#include "Kelvadrome/glib/GLibOwned.h"
#include "Kelvadrome/platform/linux/audio/GStreamerRecording.h"

#include <gst/gst.h>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace kelvadrome {

namespace {

using namespace asio::experimental::awaitable_operators;

using OwnedProperties = std::unique_ptr<GstStructure, GLibRelease<gst_structure_free>>;

bool hears(GstDevice* device) {
    const OwnedProperties properties(gst_device_get_properties(device));
    const char* const kind =
        properties ? gst_structure_get_string(properties.get(), "device.class") : nullptr;
    return !kind || std::string_view(kind) != "monitor";
}

/// Asks the sound server, which may hang.
bool hasInputDevice() {
    if (!prepareGStreamer())
        return false;
    const OwnedObject<GstDeviceMonitor> monitor(gst_device_monitor_new());
    gst_device_monitor_add_filter(monitor.get(), "Audio/Source", nullptr);
    // One that isn't started asks, too, but leaves a connection to the sound server behind each time.
    if (!gst_device_monitor_start(monitor.get()))
        return false;
    auto* const devices = gst_device_monitor_get_devices(monitor.get());
    bool found = false;
    for (auto* each = devices; each; each = each->next)
        found = hears(GST_DEVICE(each->data)) || found;
    g_list_free_full(devices, gst_object_unref);
    gst_device_monitor_stop(monitor.get());
    return found;
}

/// On a thread for which nobody waits.
Task<bool> lookForDevice() {
    const auto start = [](Completion<bool> completion) {
        std::thread([completion] { completion(hasInputDevice()); }).detach();
        return [completion] { completion(false); };
    };
    co_return co_await suspendUntil<bool>(start);
}

Task<bool> inputDevice(std::shared_ptr<Clock> clock) {
    auto limit = clock->sleep(GStreamerSource::stateLimit);
    auto looking = lookForDevice();
    auto first = co_await (std::move(looking) || std::move(limit));
    const auto* const found = std::get_if<0>(&first);
    co_return found&&* found;
}

/// Why the recording didn't open; empty when it did.
Task<std::string> opening(std::shared_ptr<GStreamerRecording> recording) {
    const auto start = [recording](Completion<std::string> completion) {
        recording->begin([completion](std::string problem) { completion(std::move(problem)); });
        return [recording] { recording->close(); };
    };
    co_return co_await suspendUntil<std::string>(start);
}

} // namespace

GStreamerSource::GStreamerSource(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {}

GStreamerSource::~GStreamerSource() {
    stop();
}

Task<MicrophoneState> GStreamerSource::state() {
    auto found = co_await attempt(inputDevice(clock_));
    co_return MicrophoneState{found && *found, true};
}

Task<bool> GStreamerSource::requestAccess() {
    co_return true;
}

Task<> GStreamerSource::start(Heard heard, Lost lost) {
    const auto recording = std::make_shared<GStreamerRecording>(std::move(heard), std::move(lost));
    recording_ = recording;
    auto limit = clock_->sleep(openLimit);
    auto opened = opening(recording);
    auto first = co_await (std::move(opened) || std::move(limit));
    const auto* const problem = std::get_if<0>(&first);
    if (problem && problem->empty())
        co_return;
    recording->close();
    throw std::runtime_error(problem ? *problem : "the microphone did not open in time");
}

void GStreamerSource::stop() {
    if (const auto recording = std::exchange(recording_, nullptr))
        recording->close();
}

} // namespace kelvadrome
