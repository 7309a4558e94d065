#include "KelvadromeKit/relay/RelayCode.h"

namespace kelvadrome::RelayCode {

std::string digits(std::string_view text) {
    std::string kept;
    for (const char c : text) {
        if (c >= '0' && c <= '9' && kept.size() < length)
            kept += c;
    }
    return kept;
}

} // namespace kelvadrome::RelayCode
