#pragma once

#include <algorithm>
#include <optional>

namespace kelvadrome {

/// How long a page that failed is left alone: 2 s, then twice as long each time, up to a minute. A page that
/// has stood for a minute begins anew. Times are seconds of `Clock::uptime`.
class HoldOff {
public:
    static constexpr double first = 2;
    static constexpr double longest = 60;
    static constexpr double steady = 60;

    /// The pause before the next try.
    double failed(double now) {
        if (goodSince_ && now - *goodSince_ >= steady)
            next_ = first;
        goodSince_.reset();
        const double pause = next_;
        next_ = std::min(next_ * 2, longest);
        return pause;
    }
    void loaded(double now) {
        if (!goodSince_)
            goodSince_ = now;
    }

private:
    double next_ = first;
    std::optional<double> goodSince_;
};

} // namespace kelvadrome
