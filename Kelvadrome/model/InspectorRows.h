#pragma once

#include "Kelvadrome/model/AppState.h"
#include "Kelvadrome/model/SidebarItem.h"

#include <string>
#include <vector>

namespace kelvadrome {

/// One fact of the inspector, and the group that it stands in.
struct InspectorRow {
    std::string title;
    std::string value;

    bool operator==(const InspectorRow&) const = default;
};

struct InspectorGroup {
    std::string title;
    std::vector<InspectorRow> rows;

    bool operator==(const InspectorGroup&) const = default;
};

/// What the inspector tells of the agent or the autopilot that is selected, of the daemon and of the page's
/// session. What isn't known has no row.
std::vector<InspectorGroup> inspectorGroups(const AppState& state, const SidebarItem::Value& selected = {});

/// A daemon's mode, as the inspector words it.
std::string_view modeWords(DaemonSupervisor::Mode mode);

} // namespace kelvadrome
