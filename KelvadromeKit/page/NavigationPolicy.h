#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Where the page's view may go, and which messages to the shell come from the page itself.
namespace kelvadrome::NavigationPolicy {

enum class Decision { allow, cancel, openInBrowser };

/// Same host and same port; one that is absent equals one that is absent.
bool sameOrigin(std::string_view url, std::string_view base);

/// For a view, or a frame in it, that is about to go to `url`. `base` is absent before the first load.
Decision decide(std::string_view url, const std::optional<std::string>& base, bool linkClick);

/// For what asks for a window of its own, which it never gets: only a pressed https link goes to the browser.
bool newWindowOpensBrowser(std::string_view url, bool linkClick);

} // namespace kelvadrome::NavigationPolicy
