#include "KelvadromeKit/page/RandomName.h"

#include <sodium.h>

#include <stdexcept>

namespace kelvadrome {

std::string randomName() {
    if (sodium_init() < 0)
        throw std::runtime_error("libsodium could not be initialised");
    unsigned char bytes[16];
    char text[2 * sizeof bytes + 1];
    randombytes_buf(bytes, sizeof bytes);
    return sodium_bin2hex(text, sizeof text, bytes, sizeof bytes);
}

} // namespace kelvadrome
