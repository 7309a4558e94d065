#include "KelvadromeKit/page/NavigationPolicy.h"

#include "KelvadromeKit/support/Text.h"

#include <boost/url/parse.hpp>

namespace kelvadrome::NavigationPolicy {

namespace {

std::string scheme(std::string_view url) {
    const auto end = url.find(':');
    return end == std::string_view::npos ? std::string() : Text::lowercasedASCII(url.substr(0, end));
}

struct Origin {
    std::optional<std::string> host;
    std::optional<std::string> port;

    bool operator==(const Origin&) const = default;
};

/// Only the authority is read strictly: browsers let characters stand in a path and a query that a strict
/// parser refuses.
Origin origin(std::string_view url) {
    const auto scheme = url.find(':');
    if (scheme == std::string_view::npos || !url.substr(scheme).starts_with("://"))
        return {};
    const auto rest = url.substr(scheme + 3);
    const auto authority = boost::urls::parse_authority(rest.substr(0, rest.find_first_of("/?#\\")));
    if (!authority)
        return {};
    Origin result{Text::lowercasedASCII(authority->encoded_host()), std::nullopt};
    if (authority->has_port())
        result.port = std::string(authority->port());
    return result;
}

} // namespace

bool sameOrigin(std::string_view url, std::string_view base) {
    return origin(url) == origin(base);
}

Decision decide(std::string_view url, const std::optional<std::string>& base, bool linkClick) {
    if (sameOrigin(url, base.value_or("")))
        return Decision::allow;
    const auto to = scheme(url);
    if (to == "about")
        return Decision::allow;
    return linkClick && (to == "https" || to == "http") ? Decision::openInBrowser : Decision::cancel;
}

bool newWindowOpensBrowser(std::string_view url, bool linkClick) {
    return linkClick && scheme(url) == "https";
}

} // namespace kelvadrome::NavigationPolicy
