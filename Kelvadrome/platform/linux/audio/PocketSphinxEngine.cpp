#include "Kelvadrome/platform/linux/audio/PocketSphinxEngine.h"

#include "Kelvadrome/platform/linux/audio/SphinxDecoder.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <malloc.h>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace kelvadrome {

namespace {

constexpr const char* english = "en-US";

} // namespace

/// The decoder that no clip is in. Whoever needs one takes it out, so that two never meet in it.
struct PocketSphinxEngine::Idle {
    /// Whether one should be loaded ahead: not while one is there, being loaded or in use.
    bool beginAhead() {
        std::lock_guard guard(lock);
        return !decoder && !inUse && !std::exchange(loading, true);
    }
    void loadAhead(const std::string& folder) {
        std::unique_ptr<SphinxDecoder> loaded;
        try {
            loaded = std::make_unique<SphinxDecoder>(folder);
        } catch (...) {
            endLoading(nullptr);
            throw;
        }
        endLoading(std::move(loaded));
    }
    /// Absent without an idle one. Waits for the one that is being loaded ahead.
    std::unique_ptr<SphinxDecoder> take() {
        std::unique_lock guard(lock);
        ++inUse;
        loaded.wait(guard, [this] { return !loading; });
        return std::move(decoder);
    }
    /// After `take`; without a decoder when that of the taker went wrong.
    void giveBack(std::unique_ptr<SphinxDecoder> used) {
        std::lock_guard guard(lock);
        --inUse;
        if (used)
            decoder.swap(used); // what was there goes when the lock is free again
    }
    bool release() {
        std::unique_ptr<SphinxDecoder> gone;
        std::lock_guard guard(lock);
        gone.swap(decoder);
        return gone != nullptr;
    }

    std::mutex lock;
    std::condition_variable loaded;
    std::unique_ptr<SphinxDecoder> decoder;
    bool loading = false;
    int inUse = 0;
    // Main executor:
    TaskHandle later;
    bool ended = false;

private:
    void endLoading(std::unique_ptr<SphinxDecoder> made) {
        {
            std::lock_guard guard(lock);
            loading = false;
            decoder = std::move(made);
        }
        loaded.notify_all();
    }
};

namespace {

Task<> wait(BackgroundPool* pool, std::shared_ptr<Clock> clock, std::function<void()> release) {
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
    idle_->later.cancel();
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

std::string PocketSphinxEngine::model() const {
    const auto folder = std::ranges::find_if(folders_, SphinxDecoder::isModel);
    return folder == folders_.end() ? std::string() : *folder;
}

void PocketSphinxEngine::releaseLater(
    Shared idle, Executor executor, BackgroundPool* pool, std::shared_ptr<Clock> clock) {
    if (idle->ended)
        return;
    auto release = [weak = std::weak_ptr(idle)] {
        if (const auto held = weak.lock(); held && held->release())
            ::malloc_trim(0); // the model is many small blocks, which would stay with this process
    };
    idle->later.cancel();
    idle->later = spawn(executor, "letting the speech model go", wait(pool, clock, std::move(release)));
}

Task<> PocketSphinxEngine::prepare() {
    const auto folder = model();
    if (folder.empty() || !idle_->beginAhead())
        co_return;
    // Nothing of this object after the wait: it may have ended.
    auto* const pool = &pool_;
    const auto clock = clock_;
    const auto idle = idle_;
    auto loading = pool->run([idle, folder] { idle->loadAhead(folder); });
    auto loaded = co_await attempt(std::move(loading));
    const auto executor = co_await asio::this_coro::executor;
    releaseLater(idle, executor, pool, clock);
    loaded.take();
}

Task<std::string> PocketSphinxEngine::transcribe(Clip clip, std::string locale) {
    const auto folder = model();
    if (locale != english || folder.empty())
        throw std::runtime_error("no speech model for " + locale);
    idle_->later.cancel();
    const auto stop = std::make_shared<std::atomic<bool>>(false);
    auto work = [idle = idle_, folder, clip, stop] {
        auto decoder = idle->take();
        std::string text;
        try {
            if (!decoder)
                decoder = std::make_unique<SphinxDecoder>(folder);
            text = decoder->hear(*clip, *stop);
        } catch (...) {
            idle->giveBack(nullptr);
            throw;
        }
        idle->giveBack(std::move(decoder));
        if (*stop)
            throw boost::system::system_error(asio::error::operation_aborted);
        return text;
    };
    auto cancel = [stop] { *stop = true; };
    // As above.
    auto* const pool = &pool_;
    const auto clock = clock_;
    const auto idle = idle_;
    auto heard = co_await attempt(pool_.run(std::move(work), std::move(cancel)));
    const auto executor = co_await asio::this_coro::executor;
    releaseLater(idle, executor, pool, clock);
    co_return heard.take();
}

} // namespace kelvadrome
