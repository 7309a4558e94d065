#pragma once

#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

namespace kelvadrome {

/// One observer's place; it stops observing when this goes away. May outlive what it observes.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> end) : end_(std::move(end)) {}
    ~Subscription() { cancel(); }
    Subscription(Subscription&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            cancel();
            end_ = std::exchange(other.end_, nullptr);
        }
        return *this;
    }

    void cancel() {
        if (const auto end = std::exchange(end_, nullptr))
            end();
    }

private:
    std::function<void()> end_;
};

/// Tells observers that something changed, at most once in a turn of the executor however much changed in it.
/// Lives on that executor.
class ChangeAnnouncer {
public:
    explicit ChangeAnnouncer(Executor executor);

    [[nodiscard]] Subscription observe(std::function<void()> observer);
    /// Observers hear of it in the executor's next turn.
    void changed();

private:
    struct State {
        std::map<std::uint64_t, std::function<void()>> observers;
        std::uint64_t next = 0;
        bool pending = false;
    };
    static void announce(const std::shared_ptr<State>& state);

    Executor executor_;
    std::shared_ptr<State> state_;
};

} // namespace kelvadrome
