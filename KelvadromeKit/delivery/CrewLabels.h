#pragma once

#include "KelvadromeKit/delivery/DeliverJob.h"
#include "KelvadromeKit/delivery/HostSession.h"

#include <map>
#include <string>
#include <vector>

/// Puts agents' callsigns on their iTerm2 tabs.
namespace kelvadrome::CrewLabels {

/// One tab to rename.
struct Action {
    std::string tty;
    std::string ref; // iTerm2's session id
    std::string name;

    bool operator==(const Action&) const = default;
};

/// The tabs whose names are not yet right, in the order of `rows`. Only a tab that is one session's beyond
/// doubt is touched. `applied` maps a ref to the name that it got last.
std::vector<Action> plan(const std::vector<CrewLabelRow>& rows, const std::vector<HostSession>& hosts,
    const std::map<std::string, std::string>& applied, bool enabled);

} // namespace kelvadrome::CrewLabels
