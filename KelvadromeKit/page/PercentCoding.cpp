#include "KelvadromeKit/page/PercentCoding.h"

#include "KelvadromeKit/support/Text.h"

#include <boost/url/encode.hpp>
#include <boost/url/pct_string_view.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>

namespace kelvadrome {

std::string percentEncoded(std::string_view text) {
    return boost::urls::encode(text, boost::urls::unreserved_chars);
}

std::optional<std::string> percentDecoded(std::string_view text) {
    const auto parsed = boost::urls::make_pct_string_view(text);
    if (!parsed)
        return std::nullopt;
    std::string decoded = parsed->decode();
    if (!Text::isValidUTF8(decoded))
        return std::nullopt;
    return decoded;
}

} // namespace kelvadrome
