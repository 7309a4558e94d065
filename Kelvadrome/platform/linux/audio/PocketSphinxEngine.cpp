#include "Kelvadrome/platform/linux/audio/PocketSphinxEngine.h"

#include "Kelvadrome/platform/linux/audio/SphinxDecoder.h"

#include <algorithm>
#include <atomic>
#include <malloc.h>
#include <mutex>
#include <stdexcept>

namespace kelvadrome {

namespace {

constexpr const char* english = "en-US";

} // namespace

/// The decoder that no clip is in. Whoever needs one takes it out, so that two never meet in it.
struct PocketSphinxEngine::Idle {
    std::unique_ptr<SphinxDecoder> take() {
        std::lock_guard guard(lock);
        return std::move(decoder);
    }
    void keep(std::unique_ptr<SphinxDecoder> used) {
        std::lock_guard guard(lock);
        decoder.swap(used); // what was there goes when the lock is free again
    }

    std::mutex lock;
    std::unique_ptr<SphinxDecoder> decoder;
    // Main executor:
    TaskHandle release;
    bool ended = false;
};

namespace {

Task<> releaseLater(BackgroundPool* pool, std::shared_ptr<Clock> clock, std::function<void()> release) {
    co_await clock->sleep(PocketSphinxEngine::idleLimit);
    pool->post(std::move(release));
}

} // namespace

std::vector<std::string> PocketSphinxEngine::modelFolders() {
    return {"/usr/share/pocketsphinx/model/en-us", "/usr/local/share/pocketsphinx/model/en-us"};
}

PocketSphinxEngine::PocketSphinxEngine(
    BackgroundPool& pool, std::shared_ptr<Clock> clock, std::vector<std::string> folders)
    : pool_(pool), clock_(std::move(clock)), folders_(std::move(folders)), idle_(std::make_shared<Idle>()) {}

PocketSphinxEngine::~PocketSphinxEngine() {
    idle_->ended = true;
    idle_->release.cancel();
}

std::vector<std::string> PocketSphinxEngine::supportedLocales() const {
    return {english};
}

std::vector<std::string> PocketSphinxEngine::installedLocales() const {
    return std::ranges::any_of(folders_, SphinxDecoder::isModel) ? supportedLocales()
                                                                 : std::vector<std::string>();
}

bool PocketSphinxEngine::loaded() const {
    std::lock_guard guard(idle_->lock);
    return idle_->decoder != nullptr;
}

Task<std::string> PocketSphinxEngine::transcribe(Clip clip, std::string locale) {
    const auto folder = std::ranges::find_if(folders_, SphinxDecoder::isModel);
    if (locale != english || folder == folders_.end())
        throw std::runtime_error("no speech model for " + locale);
    idle_->release.cancel();
    const auto stop = std::make_shared<std::atomic<bool>>(false);
    auto work = [idle = idle_, folder = *folder, clip, stop] {
        auto decoder = idle->take();
        if (!decoder)
            decoder = std::make_unique<SphinxDecoder>(folder);
        auto text = decoder->hear(*clip, *stop);
        idle->keep(std::move(decoder));
        if (*stop)
            throw boost::system::system_error(asio::error::operation_aborted);
        return text;
    };
    auto cancel = [stop] { *stop = true; };
    // Nothing of this object after the wait: it may have ended.
    auto* const pool = &pool_;
    const auto clock = clock_;
    const auto idle = idle_;
    auto heard = co_await attempt(pool_.run(std::move(work), std::move(cancel)));
    if (!idle->ended) {
        auto release = [weak = std::weak_ptr(idle)] {
            if (const auto held = weak.lock(); held && held->take())
                ::malloc_trim(0); // the model is many small blocks, which would stay with this process
        };
        const auto executor = co_await asio::this_coro::executor;
        idle->release.cancel();
        idle->release =
            spawn(executor, "letting the speech model go", releaseLater(pool, clock, std::move(release)));
    }
    co_return heard.take();
}

} // namespace kelvadrome
