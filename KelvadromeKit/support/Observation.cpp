#include "KelvadromeKit/support/Observation.h"

#include <vector>

namespace kelvadrome {

ChangeAnnouncer::ChangeAnnouncer(Executor executor)
    : executor_(std::move(executor)), state_(std::make_shared<State>()) {}

Subscription ChangeAnnouncer::observe(std::function<void()> observer) {
    const auto id = state_->next++;
    state_->observers.emplace(id, std::move(observer));
    return Subscription([weak = std::weak_ptr(state_), id] {
        if (const auto state = weak.lock())
            state->observers.erase(id);
    });
}

void ChangeAnnouncer::changed() {
    if (std::exchange(state_->pending, true))
        return;
    asio::post(executor_, [weak = std::weak_ptr(state_)] {
        if (const auto state = weak.lock())
            announce(state);
    });
}

void ChangeAnnouncer::announce(const std::shared_ptr<State>& state) {
    state->pending = false;
    // An observer may end its own subscription or another's, so each is looked up again before its call.
    std::vector<std::uint64_t> ids;
    for (const auto& [id, observer] : state->observers)
        ids.push_back(id);
    for (const auto id : ids) {
        const auto found = state->observers.find(id);
        if (found == state->observers.end())
            continue;
        const auto observer = found->second;
        observer();
    }
}

} // namespace kelvadrome
