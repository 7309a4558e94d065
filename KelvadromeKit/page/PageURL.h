#pragma once

#include "KelvadromeKit/attention/InterfaceMode.h"
#include "KelvadromeKit/attention/ScopeFilter.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The addresses of the daemon's page, as this shell asks for them.
namespace kelvadrome::PageURL {

using QueryItems = std::vector<std::pair<std::string, std::string>>;

/// `base` (an origin) and the path, then shell=native, the scope unless it is `all`, mode=expert in that
/// mode, and `extra`, all percent-encoded. `path` brings no query; it is plain text, or encoded already.
std::string url(std::string_view base, std::string_view path, ScopeFilter scope, InterfaceMode mode,
    const QueryItems& extra = {});

} // namespace kelvadrome::PageURL
