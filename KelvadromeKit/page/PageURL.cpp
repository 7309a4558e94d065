#include "KelvadromeKit/page/PageURL.h"

#include "KelvadromeKit/page/PercentCoding.h"

#include <boost/url/encode.hpp>
#include <boost/url/rfc/pchars.hpp>

namespace kelvadrome::PageURL {

std::string url(std::string_view base, std::string_view path, ScopeFilter scope, InterfaceMode mode,
    const QueryItems& extra) {
    QueryItems items{{"shell", "native"}};
    if (scope != ScopeFilter::all)
        items.emplace_back("scope", rawValue(scope));
    if (mode == InterfaceMode::expert)
        items.push_back(queryItem(mode));
    items.insert(items.end(), extra.begin(), extra.end());

    auto result = std::string(base) + boost::urls::encode(path, boost::urls::pchars + '/');
    char separator = '?';
    for (const auto& [name, value] : items) {
        result += separator + percentEncoded(name) + '=' + percentEncoded(value);
        separator = '&';
    }
    return result;
}

} // namespace kelvadrome::PageURL
