#pragma once

#include "KelvadromeKit/support/Task.h"

#include <compare>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace kelvadrome {

/// What to take a picture of: one window by its number, or a region that the user drags.
struct CaptureTarget {
    struct Region {
        bool operator==(const Region&) const = default;
    };
    std::variant<std::uint32_t, Region> what;

    static CaptureTarget window(std::uint32_t id) { return {id}; }
    static CaptureTarget region() { return {Region{}}; }
    bool isRegion() const { return std::holds_alternative<Region>(what); }

    bool operator==(const CaptureTarget&) const = default;
};

/// The capture tool's command. Other platforms give the same contract with tools of their own: a PNG at the
/// path, exit 0, nothing written when the user cancels.
namespace ScreenCaptureCommand {

inline constexpr const char* program = "/usr/sbin/screencapture";

std::vector<std::string> argv(const CaptureTarget& target, const std::string& path);

} // namespace ScreenCaptureCommand

/// A screenshot on disk that passed its checks.
struct CapturedShot {
    std::string id;
    std::string path;
    std::int64_t bytes = 0;

    bool operator==(const CapturedShot&) const = default;
};

struct CaptureOutcome {
    enum class Kind { captured, needsPermission, cancelled, limit, failed };

    Kind kind = Kind::failed;
    CapturedShot shot; // of `captured` only

    static CaptureOutcome captured(CapturedShot shot) { return {Kind::captured, std::move(shot)}; }

    bool operator==(const CaptureOutcome&) const = default;
};

/// Tells a capture that ends late that what it was for is over.
struct CaptureGeneration {
    std::int64_t current = 0;

    void close() { ++current; }
    bool isCurrent(std::int64_t value) const { return value == current; }

    bool operator==(const CaptureGeneration&) const = default;
};

/// Whether the system lets this program read the screen.
class ScreenPermission {
public:
    virtual ~ScreenPermission() = default;
    virtual bool granted() = 0;
    /// Has the system ask the user.
    virtual void request() = 0;
};

/// Runs the capture tool and gives its exit status; -1 when it could not be started. Main executor.
class CaptureCommandRunning {
public:
    virtual ~CaptureCommandRunning() = default;
    virtual Task<std::int32_t> run(std::vector<std::string> argv) = 0;
};

} // namespace kelvadrome
