#include "KelvadromeKit/attention/ScopeFilter.h"

#include <cstddef>

namespace kelvadrome {

namespace {

constexpr std::array<std::string_view, 5> rawValues = {"all", "scenario", "tolvena", "family", "companies"};
constexpr std::array<std::string_view, 5> titles = {"All", "Scenario", "Tolvena", "Family", "Companies"};

} // namespace

std::string_view rawValue(ScopeFilter scope) {
    return rawValues.at(static_cast<std::size_t>(scope));
}

std::string_view title(ScopeFilter scope) {
    return titles.at(static_cast<std::size_t>(scope));
}

std::optional<ScopeFilter> scopeFilterFromRawValue(std::string_view text) {
    for (const auto scope : allScopeFilters) {
        if (rawValue(scope) == text)
            return scope;
    }
    return std::nullopt;
}

} // namespace kelvadrome
