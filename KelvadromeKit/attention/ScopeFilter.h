#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace kelvadrome {

/// Which part of the user's work is shown.
enum class ScopeFilter { all, scenario, tolvena, family, companies };

inline constexpr std::array allScopeFilters = {ScopeFilter::all, ScopeFilter::scenario, ScopeFilter::tolvena,
    ScopeFilter::family, ScopeFilter::companies};

/// The enumerator's name, as the page and the defaults know it.
std::string_view rawValue(ScopeFilter scope);
std::optional<ScopeFilter> scopeFilterFromRawValue(std::string_view text);
/// As a person reads it: "All", "Scenario" and so on.
std::string_view title(ScopeFilter scope);

} // namespace kelvadrome
