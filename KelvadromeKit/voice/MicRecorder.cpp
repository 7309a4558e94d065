#include "KelvadromeKit/voice/MicRecorder.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>

namespace kelvadrome {

/// What the audio thread touches, and nothing else.
struct MicRecorder::Heap {
    explicit Heap(Ends e) : ends(std::move(e)) {
        samples.reserve(limit);
    } // memory that is touched as it fills

    void append(std::span<const std::int16_t> heard) {
        bool full = false;
        {
            const std::lock_guard guard(lock);
            const auto room = std::min(heard.size(), limit - samples.size());
            samples.insert(samples.end(), heard.begin(), heard.begin() + static_cast<std::ptrdiff_t>(room));
            full = samples.size() == limit;
        }
        if (full && ends.onLimit)
            ends.onLimit();
    }
    std::vector<std::int16_t> take() {
        const std::lock_guard guard(lock);
        return std::exchange(samples, {});
    }

    const Ends ends;
    std::mutex lock;
    std::vector<std::int16_t> samples;
};

std::shared_ptr<MicRecorder> MicRecorder::make(std::shared_ptr<AudioSource> source) {
    struct Recorder final : MicRecorder {
        explicit Recorder(std::shared_ptr<AudioSource> s) : MicRecorder(std::move(s)) {}
    };
    return std::make_shared<Recorder>(std::move(source));
}

MicRecorder::MicRecorder(std::shared_ptr<AudioSource> source) : source_(std::move(source)) {}

MicRecorder::~MicRecorder() {
    stop();
}

Task<> MicRecorder::start(Ends ends) {
    return open(shared_from_this(), std::move(ends));
}

Task<> MicRecorder::open(std::shared_ptr<MicRecorder> self, Ends ends) {
    if (self->heap_)
        co_return;
    if (self->opening_)
        throw std::runtime_error("the microphone is still being opened for a recording of before");
    const auto heap = std::make_shared<Heap>(std::move(ends));
    self->heap_ = heap;
    self->opening_ = true;
    auto opening = self->source_->start([heap](auto heard) { heap->append(heard); },
        [heap] {
            if (heap->ends.onLost)
                heap->ends.onLost();
        });
    auto opened = co_await attempt(std::move(opening));
    self->opening_ = false;
    const bool takenBack = self->heap_ != heap;
    if (opened && !takenBack) {
        self->running_ = true;
        co_return;
    }
    self->source_->stop();
    if (!takenBack)
        self->heap_.reset();
    opened.take();
}

std::vector<std::int16_t> MicRecorder::stop() {
    const auto heap = std::exchange(heap_, nullptr);
    if (!heap)
        return {};
    source_->stop();
    const bool ran = std::exchange(running_, false);
    auto heard = heap->take();
    return ran ? std::move(heard) : std::vector<std::int16_t>();
}

} // namespace kelvadrome
