#pragma once

#include <glibmm/main.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>

namespace kelvadrome {

/// One call later, for a view that time alone changes. The last one asked for counts; it ends with this
/// object.
class Waking {
public:
    Waking() = default;
    ~Waking() { at_.disconnect(); }
    Waking(const Waking&) = delete;
    Waking& operator=(const Waking&) = delete;

    /// Absent: not at all.
    void in(std::optional<double> seconds, std::function<void()> wake) {
        at_.disconnect();
        if (!seconds)
            return;
        const auto milliseconds = static_cast<unsigned>(std::ceil(std::max(*seconds, 0.0) * 1000));
        at_ = Glib::signal_timeout().connect(
            [wake = std::move(wake)] {
                wake();
                return false;
            },
            milliseconds);
    }

private:
    sigc::connection at_;
};

} // namespace kelvadrome
