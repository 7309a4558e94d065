#include "KelvadromeKit/wire/StreamText.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome {

std::string StreamText::take(std::string_view bytes) {
    std::string whole = std::move(carried_);
    carried_.clear();
    whole += bytes;
    // A character cut at the end is cut by one to three bytes; the last case ends below, with the same
    // result.
    for (std::size_t length = whole.size(); length > 0 && length + 3 > whole.size(); --length) {
        if (!Text::isValidUTF8(std::string_view(whole).substr(0, length)))
            continue;
        carried_ = whole.substr(length);
        whole.resize(length);
        return whole;
    }
    const auto front = whole.size() - std::min<std::size_t>(whole.size(), 3);
    carried_ = whole.substr(front);
    whole.resize(front);
    return Text::repairUTF8(whole);
}

} // namespace kelvadrome
