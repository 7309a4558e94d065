#include "KelvadromeKit/wire/StreamText.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <utility>

namespace kelvadrome {

std::string_view StreamText::take(std::string_view bytes) {
    if (!carried_.empty()) {
        text_ = std::exchange(carried_, {});
        text_ += bytes;
        bytes = text_;
    }
    // A character cut at the end is cut by one to three bytes; the last case ends below, with the same
    // result.
    for (std::size_t length = bytes.size(); length > 0 && length + 3 > bytes.size(); --length) {
        if (!Text::isValidUTF8(bytes.substr(0, length)))
            continue;
        carried_ = bytes.substr(length);
        return bytes.substr(0, length);
    }
    const auto front = bytes.size() - std::min<std::size_t>(bytes.size(), 3);
    carried_ = bytes.substr(front);
    text_ = Text::repairUTF8(bytes.substr(0, front));
    return text_;
}

} // namespace kelvadrome
