#include "KelvadromeKit/delivery/CrewLabels.h"

#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>

namespace kelvadrome::CrewLabels {

namespace {

constexpr std::size_t maxCallsign = 24; // scalars

/// A letter, then letters, digits, apostrophes, blanks and hyphens: nothing else reaches a tab's title.
bool isCallsign(const std::string& text) {
    // The length stands outside the pattern: a counted repetition of all letters outgrows RE2's memory.
    static const RE2 pattern("\\p{L}[\\p{L}0-9' -]*");
    return Text::scalars(text).size() <= maxCallsign && RE2::FullMatch(text, pattern);
}

/// The one iTerm2 session on this tty; null when there is none or more than one.
const HostSession* onlySession(const std::vector<HostSession>& hosts, const std::string& tty) {
    const HostSession* only = nullptr;
    for (const auto& session : hosts) {
        if (session.host != "iterm2" || session.tty != tty)
            continue;
        if (only)
            return nullptr;
        only = &session;
    }
    return only;
}

} // namespace

std::vector<Action> plan(const std::vector<CrewLabelRow>& rows, const std::vector<HostSession>& hosts,
    const std::map<std::string, std::string>& applied, bool enabled) {
    std::vector<Action> actions;
    if (!enabled)
        return actions;
    for (const auto& row : rows) {
        if (row.host != "iterm2" || row.status == "ended" || !row.tty || !row.callsign)
            continue;
        if (!isCallsign(*row.callsign))
            continue;
        const auto* session = onlySession(hosts, *row.tty);
        if (!session || session->ref.empty())
            continue;
        const auto last = applied.find(session->ref);
        if (last != applied.end() && last->second == *row.callsign)
            continue;
        actions.push_back({*row.tty, session->ref, *row.callsign});
    }
    return actions;
}

} // namespace kelvadrome::CrewLabels
