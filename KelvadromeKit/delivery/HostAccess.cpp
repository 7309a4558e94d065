#include "KelvadromeKit/delivery/HostAccess.h"

namespace kelvadrome {

std::string_view rawValue(HostAccess access) {
    switch (access) {
    case HostAccess::ok:
        return "ok";
    case HostAccess::waiting:
        return "waiting";
    case HostAccess::denied:
        return "denied";
    case HostAccess::locked:
        return "locked";
    case HostAccess::busy:
        break;
    }
    return "busy";
}

std::optional<HostAccess> classifyHostAccess(
    const RunOutput& output, ConsentCode consent, bool screenLocked) {
    if (output.status == 0)
        return HostAccess::ok;
    const bool saysDenied = output.stderrText.find("(-1743)") != std::string::npos;
    if (consent == consentDenied || saysDenied)
        return HostAccess::denied;
    if (consent == consentNotAsked)
        return HostAccess::waiting;
    if (!output.timedOut)
        return std::nullopt;
    if (screenLocked)
        return HostAccess::locked;
    // Allowed, and yet no answer.
    if (consent == 0)
        return HostAccess::busy;
    return HostAccess::waiting;
}

HostAccessProbe HostAccessProbe::none() {
    return {[](const std::string&) { return ConsentCode(); }, [] { return false; }};
}

} // namespace kelvadrome
