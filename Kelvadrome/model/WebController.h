#pragma once

#include "KelvadromeKit/attention/InterfaceMode.h"
#include "KelvadromeKit/attention/ScopeFilter.h"
#include "KelvadromeKit/daemon/NavSection.h"
#include "KelvadromeKit/page/PageSession.h"
#include "KelvadromeKit/page/PageURL.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kelvadrome {

/// The daemon's page, as a front end shows it: in a web view, or as a link that opens the user's browser.
/// What is the same for all is here; how a page is loaded and a script is run is the front end's. Main
/// executor; nothing throws.
class WebController {
public:
    using QueryItems = PageURL::QueryItems;

    virtual ~WebController() = default;

    /// Takes the session over (`base`, `cookieValue`; no page counts as loaded from here on), then loads the
    /// section. The first request never goes out without its cookie.
    virtual void load(PageSession::Credentials credentials, NavSection section, ScopeFilter scope) = 0;
    /// Goes to a path inside the page, to the card `focus` when given: without a reload where the page can do
    /// that.
    virtual void navigate(std::string path, ScopeFilter scope, std::optional<std::string> focus) = 0;
    /// Shows search results.
    virtual void search(std::string query, ScopeFilter scope) = 0;
    /// Changes the page's scope; `path` is where the page is.
    virtual void setScope(ScopeFilter scope, std::string path) = 0;
    /// Runs a call on the page's object `b`; when no page has loaded yet, or the result isn't true, loads
    /// `fallback`.
    virtual void callShell(std::string expression, std::optional<std::string> fallback) = 0;
    /// Runs a script in the page, ignoring the result.
    virtual void runScript(std::string script) = 0;
    /// Loads the page again.
    virtual void reload() = 0;

    /// The page's address for a path: shell=native, then the scope unless it is `all`, then mode=expert in
    /// that mode, then `extra`, values percent-encoded. Absent before the first `load`.
    std::optional<std::string> url(
        std::string_view path, ScopeFilter scope, const QueryItems& extra = {}) const;

    std::optional<std::string> base;        // the page's origin, "http://127.0.0.1:<port>"
    std::optional<std::string> cookieValue; // the session in use
    std::string theme = "system";           // the page's colour theme
    InterfaceMode mode = InterfaceMode::simple;
    std::function<void()> onFirstLoad; // once after each `load`, when the page has finished loading
};

} // namespace kelvadrome
