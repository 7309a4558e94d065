#include "Kelvadrome/platform/linux/audio/GStreamerSource.h"

#include "tests/support/TestLoop.h"
#include "tests/support/VirtualMicrophone.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <mutex>
#include <numbers>
#include <random>

namespace kelvadrome::test {
namespace {

using Samples = std::vector<std::int16_t>;

/// What a recorder is: told on threads that aren't the test's.
struct Listener {
    void hear(std::span<const std::int16_t> more) {
        std::lock_guard guard(lock);
        samples.insert(samples.end(), more.begin(), more.end());
    }
    Samples heard() {
        std::lock_guard guard(lock);
        return samples;
    }
    std::mutex lock;
    Samples samples;
    std::atomic<int> lost = 0;
};

struct GStreamerSourceTest : testing::Test {
    void plug(int rate = voiceSampleRate) {
        microphone.emplace(rate);
        if (!microphone->problem().empty())
            throw std::runtime_error(microphone->problem());
    }
    Outcome<void> start() {
        return loop.run(attempt(source.start([listener = listener](auto more) { listener->hear(more); },
                            [listener = listener] { ++listener->lost; })),
            pass);
    }
    bool hasDevice() { return loop.run(source.state(), pass).inputDevice; }
    static auto descriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }
    /// Until `count` samples more were heard.
    void hear(std::size_t count) {
        const auto wanted = listener->heard().size() + count;
        loop.until([&] { return listener->heard().size() >= wanted; }, "more samples");
    }
    Samples record(const Samples& played) {
        EXPECT_TRUE(start());
        microphone->play(played);
        loop.until([&] { return microphone->quiet(); }, "the end of what is played");
        hear(voiceSampleRate / 2);
        source.stop();
        return listener->heard();
    }
    void untilLost() {
        loop.until([&] { return listener->lost > 0; }, "the loss of the microphone to be told");
        const auto count = listener->heard().size();
        source.stop();
        EXPECT_EQ(listener->lost, 1);
        EXPECT_EQ(listener->heard().size(), count);
    }

    TestLoop loop;
    std::optional<VirtualMicrophone> microphone;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::function<void()> pass = [] {}; // how time passes while a task runs
    GStreamerSource source{clock};
    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
};

} // namespace

TEST_F(GStreamerSourceTest, whatIsPlayedToAMicrophoneOfOurRateComesBackSampleForSample) {
    plug();
    Samples played(2 * voiceSampleRate);
    std::minstd_rand chance(1);
    for (auto& sample : played)
        sample = static_cast<std::int16_t>(1 + chance() % 20'000);
    const auto heard = record(played);
    const auto from = std::ranges::find_if(heard, [](auto sample) { return sample != 0; });
    ASSERT_GE(heard.end() - from, std::ssize(played));
    EXPECT_TRUE(std::equal(played.begin(), played.end(), from));
}

TEST_F(GStreamerSourceTest, aToneAtAnotherRateLosesNoSampleOnItsWay) {
    constexpr int rate = 48'000;
    constexpr double frequency = 500, loudness = 10'000;
    plug(rate);
    Samples played(2 * rate);
    for (std::size_t at = 0; at < played.size(); ++at)
        played[at] = static_cast<std::int16_t>(std::lround(
            loudness * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(at) / rate)));
    const auto heard = record(played);
    const auto loud = [](auto sample) { return std::abs(sample) > 1000; };
    const auto from = std::ranges::find_if(heard, loud) - heard.begin();
    const auto to = std::find_if(heard.rbegin(), heard.rend(), loud).base() - heard.begin();
    EXPECT_NEAR(static_cast<double>(to - from), 2.0 * voiceSampleRate, 20);
    // Of a pure tone two samples tell the third, whatever its phase: where one is missing they don't.
    const double turn = 2 * std::cos(2 * std::numbers::pi * frequency / voiceSampleRate);
    double worst = 0;
    for (auto at = from + 100; at < to - 100; ++at)
        worst = std::max(worst, std::abs(turn * heard[at - 1] - heard[at - 2] - heard[at]));
    EXPECT_LT(worst, 40); // a lost sample: 380 on average
}

TEST_F(GStreamerSourceTest, anEarIsADeviceAndWhatPlaysIsNone) {
    plug();
    EXPECT_TRUE(hasDevice());
    const auto connections = descriptors();
    EXPECT_TRUE(hasDevice());
    loop.until([&] { return descriptors() <= connections; }, "the connection to the server to close");
    ASSERT_TRUE(start());
    hear(1000);
    microphone->unplug(); // the server moves who listens to the monitor
    untilLost();
    EXPECT_FALSE(hasDevice()); // the monitor is what the server would record now
    microphone->end();
    EXPECT_FALSE(hasDevice());
    const auto started = start();
    EXPECT_FALSE(started);
}

TEST_F(GStreamerSourceTest, afterStopNothingIsHeardAndItCanStartAgain) {
    plug();
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(start());
        hear(1000);
        source.stop();
        source.stop();
        const auto count = listener->heard().size();
        microphone->unplug();
        microphone->plug();
        EXPECT_EQ(listener->heard().size(), count);
    }
    EXPECT_EQ(listener->lost, 0);
}

TEST_F(GStreamerSourceTest, aServerThatStandsStillOrEndsIsALossAndHoldsNobodyUp) {
    plug();
    ASSERT_TRUE(start());
    hear(1000);
    microphone->stop();
    untilLost();
    pass = [this] { clock->advance(1); };
    EXPECT_FALSE(hasDevice());
    EXPECT_FALSE(start());
    pass = [] {};
    microphone->goOn();
    loop.until([&] { return hasDevice(); }, "the server that goes on");
    listener->lost = 0;
    ASSERT_TRUE(start());
    hear(1000);
    microphone->end();
    untilLost();
}

} // namespace kelvadrome::test
