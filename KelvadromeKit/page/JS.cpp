#include "KelvadromeKit/page/JS.h"

#include "KelvadromeKit/support/Text.h"

#include <boost/json/serialize.hpp>
#include <boost/json/string.hpp>

namespace kelvadrome::JS {

std::string string(std::string_view text) {
    if (!Text::isValidUTF8(text))
        return "\"\"";
    return boost::json::serialize(boost::json::string(text));
}

} // namespace kelvadrome::JS
