#pragma once

#include "Kelvadrome/platform/linux/session/SessionBus.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Task.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// What became of something that a desktop portal was asked.
struct PortalAnswer {
    // Besides the portal's own: 0 for done, 1 for a user who refused, 2 for ended otherwise.
    static constexpr std::int32_t noPortal = -1; // or none that offers this
    static constexpr std::int32_t silent = -2;   // up to the limit

    std::int32_t status = noPortal;
    std::shared_ptr<GVariant> results; // a{sv}, of status 0

    /// Absent when it isn't there, or is no text.
    std::optional<std::string> text(const char* key) const;
};

namespace PortalRequest {

inline constexpr const char* service = "org.freedesktop.portal.Desktop";
inline constexpr const char* path = "/org/freedesktop/portal/desktop";
inline constexpr const char* sessionInterface = "org.freedesktop.portal.Session";

struct Question {
    const char* interface;
    const char* method;
    /// Gives the method's arguments around these options, which it may add to.
    std::function<GVariant*(GVariantBuilder* options)> arguments;
    double limit; // seconds
};

/// Asks and waits for the portal's answer, which comes as a signal, often after the user's. What isn't
/// answered within the limit, or is cancelled, is withdrawn. Main thread.
Task<PortalAnswer> ask(std::shared_ptr<SessionBus> bus, std::shared_ptr<Clock> clock, Question question);

/// A name for something new that a portal makes for this process.
std::string token();

} // namespace PortalRequest

} // namespace kelvadrome
