#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// A section of the main window, and of the page.
enum class NavSection { inbox, topics, handoffs, skills, receipts, agents, autopilot };

inline constexpr std::array allNavSections = {NavSection::inbox, NavSection::topics, NavSection::handoffs,
    NavSection::skills, NavSection::receipts, NavSection::agents, NavSection::autopilot};

std::string_view rawValue(NavSection section); // the enumerator's name
std::optional<NavSection> navSectionFromRawValue(std::string_view text);
std::string title(NavSection section); // as a person reads it: "Inbox"
/// The page's path: "/" for the inbox, otherwise "/" and the raw value.
std::string path(NavSection section);

} // namespace kelvadrome
