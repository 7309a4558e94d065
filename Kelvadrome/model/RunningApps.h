#pragma once

#include <string>

namespace kelvadrome {

/// Other applications of the desktop, by bundle id. Main executor; returns at once.
class RunningApps {
public:
    virtual ~RunningApps() = default;

    virtual bool isRunning(const std::string& bundleId) = 0;
    /// Brings the first running instance forward; nothing when it doesn't run.
    virtual void activate(const std::string& bundleId) = 0;
};

} // namespace kelvadrome
