#include "KelvadromeKit/relay/RelayQR.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <qrencode.h>

namespace kelvadrome::RelayQR {

namespace {

constexpr std::uint8_t black = 0;
constexpr std::uint8_t white = 255;

struct FreeCode {
    void operator()(QRcode* code) const { ::QRcode_free(code); }
};

} // namespace

std::optional<GreyPicture> image(std::string_view text, std::size_t scale) {
    if (text.empty() || text.size() > std::numeric_limits<int>::max() || scale < 1 || scale > largestScale)
        return std::nullopt;
    const std::unique_ptr<QRcode, FreeCode> code(::QRcode_encodeData(
        static_cast<int>(text.size()), reinterpret_cast<const unsigned char*>(text.data()), 0, QR_ECLEVEL_M));
    if (!code)
        return std::nullopt;
    const auto modules = static_cast<std::size_t>(code->width);
    const auto side = (modules + 2 * quietZone) * scale;
    GreyPicture picture{side, side, std::vector<std::uint8_t>(side * side, white)};
    for (std::size_t y = 0; y < modules * scale; ++y) {
        const auto* const row = code->data + y / scale * modules;
        auto* const line = picture.pixels.data() + (y + quietZone * scale) * side + quietZone * scale;
        for (std::size_t x = 0; x < modules; ++x) {
            if (row[x] & 1) // the other bits say what the module is for
                std::fill_n(line + x * scale, scale, black);
        }
    }
    return picture;
}

} // namespace kelvadrome::RelayQR
