#include "KelvadromeKit/page/PageURL.h"

#include "KelvadromeKit/page/PercentCoding.h"

#include <boost/url/encode.hpp>
#include <boost/url/pct_string_view.hpp>
#include <boost/url/rfc/pchars.hpp>

namespace kelvadrome::PageURL {

namespace {

/// What is encoded already stays as it is.
std::string encodedPath(std::string_view path) {
    const auto kept = boost::urls::pchars + '/';
    std::string result;
    if (boost::urls::make_pct_string_view(path)) {
        constexpr std::size_t escape = 3;
        for (auto cut = path.find('%'); cut != std::string_view::npos; cut = path.find('%')) {
            result += boost::urls::encode(path.substr(0, cut), kept);
            result += path.substr(cut, escape);
            path.remove_prefix(cut + escape);
        }
    }
    return result + boost::urls::encode(path, kept);
}

} // namespace

std::string url(std::string_view base, std::string_view path, ScopeFilter scope, InterfaceMode mode,
    const QueryItems& extra) {
    QueryItems items{{"shell", "native"}};
    if (scope != ScopeFilter::all)
        items.emplace_back("scope", rawValue(scope));
    if (mode == InterfaceMode::expert)
        items.push_back(queryItem(mode));
    items.insert(items.end(), extra.begin(), extra.end());

    auto result = std::string(base) + encodedPath(path);
    char separator = '?';
    for (const auto& [name, value] : items) {
        result += separator + percentEncoded(name) + '=' + percentEncoded(value);
        separator = '&';
    }
    return result;
}

} // namespace kelvadrome::PageURL
