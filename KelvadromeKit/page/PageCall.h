#pragma once

#include "KelvadromeKit/attention/ScopeFilter.h"
#include "KelvadromeKit/page/PageURL.h"

#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// Something that the loaded page can do by itself, and the address that does the same by a load.
struct PageCall {
    std::string expression; // over the page's object `b`; true when the page did it
    std::string path;       // the fallback's path and items, for PageURL::url
    PageURL::QueryItems extra;

    /// Goes to a path, and to the card `focus` there.
    static PageCall navigate(const std::string& path, const std::optional<std::string>& focus);
    /// Shows results for the query, trimmed.
    static PageCall search(std::string_view query);
    /// Changes the scope filter; an older page has its button pressed. `path` is where the page is.
    static PageCall setScope(ScopeFilter scope, const std::string& path);

    /// The script around the expression: false when the page has no such object.
    std::string script() const;

    bool operator==(const PageCall&) const = default;
};

/// Tells the page its colour theme, if it can be told.
std::string setThemeScript(std::string_view theme);

} // namespace kelvadrome
