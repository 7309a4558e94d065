#include "KelvadromeKit/delivery/ConsentGuard.h"

#include <chrono>
#include <mutex>
#include <semaphore>
#include <thread>

namespace kelvadrome {

struct ConsentGuard::State {
    bool enter() {
        std::lock_guard guard(lock);
        return !std::exchange(busy, true);
    }
    void leave() {
        std::lock_guard guard(lock);
        busy = false;
    }

    std::mutex lock;
    bool busy = false; // a call is under way, perhaps for ever
};

namespace {

/// One call's answer, which its asker may no longer be waiting for.
struct Box {
    void put(ConsentCode code) {
        std::lock_guard guard(lock);
        value = code;
    }
    ConsentCode take() {
        std::lock_guard guard(lock);
        return value;
    }

    std::binary_semaphore answered{0};
    std::mutex lock;
    ConsentCode value;
};

} // namespace

ConsentGuard::ConsentGuard(Call call) : call_(std::move(call)), state_(std::make_shared<State>()) {}

ConsentCode ConsentGuard::consent(std::string bundleId) const {
    if (!state_->enter())
        return std::nullopt;
    auto box = std::make_shared<Box>();
    // Not a pool's thread and joined by nobody: the call may never return.
    std::thread([state = state_, box, call = call_, bundleId = std::move(bundleId)] {
        box->put(call(bundleId));
        state->leave();
        box->answered.release();
    }).detach();
    if (!box->answered.try_acquire_for(std::chrono::duration<double>(limit)))
        return std::nullopt;
    return box->take();
}

} // namespace kelvadrome
