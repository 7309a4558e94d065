#include "Kelvadrome/gtk/tray/TrayImage.h"

#include "Kelvadrome/gtk/parts/WordmarkPath.h"
#include "KelvadromeKit/brand/Wordmark.h"

#include <cairomm/context.h>
#include <cairomm/surface.h>
#include <cmath>
#include <cstring>
#include <numbers>
#include <string>

namespace kelvadrome {

namespace {

using Context = Cairo::RefPtr<Cairo::Context>;

// In units of a drawing 64 wide.
constexpr double side = 64;
constexpr double cornerRadius = 13;
constexpr double markScale = 0.8;
constexpr double markX = 28, markY = 32; // the mark's centre in its own units
constexpr double badgeRadius = 17;
constexpr double badgeX = side - badgeRadius, badgeY = side - badgeRadius;

void roundedSquare(const Context& cairo) {
    constexpr double quarter = std::numbers::pi / 2;
    cairo->begin_new_sub_path();
    int turn = -1;
    for (const auto& [x, y] :
        {std::pair(side - cornerRadius, cornerRadius), std::pair(side - cornerRadius, side - cornerRadius),
            std::pair(cornerRadius, side - cornerRadius), std::pair(cornerRadius, cornerRadius)}) {
        cairo->arc(x, y, cornerRadius, turn * quarter, (turn + 1) * quarter);
        ++turn;
    }
    cairo->close_path();
}

void drawMark(const Context& cairo) {
    roundedSquare(cairo);
    cairo->set_source_rgb(0.13, 0.40, 0.77);
    cairo->fill();
    cairo->save();
    cairo->translate(side / 2, side / 2);
    cairo->scale(markScale, markScale);
    cairo->translate(-markX, -markY);
    static const auto commands = Wordmark::parse(Wordmark::dotPath);
    addToPath(*cairo.get(), commands);
    cairo->set_source_rgb(1, 1, 1);
    cairo->fill();
    cairo->restore();
}

void drawCount(const Context& cairo, std::int64_t count) {
    const auto words = count > 9 ? std::string("9+") : std::to_string(count);
    cairo->arc(badgeX, badgeY, badgeRadius + 3, 0, 2 * std::numbers::pi);
    cairo->set_operator(Cairo::Context::Operator::CLEAR); // a gap that shows on a panel of any colour
    cairo->fill();
    cairo->set_operator(Cairo::Context::Operator::OVER);
    cairo->arc(badgeX, badgeY, badgeRadius, 0, 2 * std::numbers::pi);
    cairo->set_source_rgb(0.88, 0.11, 0.14);
    cairo->fill();
    cairo->select_font_face(
        "sans-serif", Cairo::ToyFontFace::Slant::NORMAL, Cairo::ToyFontFace::Weight::BOLD);
    cairo->set_font_size(words.size() > 1 ? 22 : 29);
    Cairo::TextExtents extents;
    cairo->get_text_extents(words, extents);
    cairo->move_to(
        badgeX - extents.width / 2 - extents.x_bearing, badgeY - extents.height / 2 - extents.y_bearing);
    cairo->set_source_rgb(1, 1, 1);
    cairo->show_text(words);
}

TrayItem::Pixmap image(int size, std::int64_t count) {
    const auto surface = Cairo::ImageSurface::create(Cairo::Surface::Format::ARGB32, size, size);
    const auto cairo = Cairo::Context::create(surface);
    cairo->scale(size / side, size / side);
    drawMark(cairo);
    if (count > 0)
        drawCount(cairo, count);
    surface->flush();
    return fromPremultiplied(
        size, size, static_cast<std::size_t>(surface->get_stride()), surface->get_data());
}

} // namespace

TrayItem::Pixmap fromPremultiplied(
    std::int32_t width, std::int32_t height, std::size_t stride, const unsigned char* pixels) {
    TrayItem::Pixmap pixmap{width, height, {}};
    pixmap.bytes.reserve(std::size_t(width) * std::size_t(height) * 4);
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            std::uint32_t pixel = 0;
            std::memcpy(&pixel, pixels + std::size_t(y) * stride + std::size_t(x) * 4, sizeof pixel);
            const auto alpha = pixel >> 24;
            pixmap.bytes += static_cast<char>(alpha);
            for (const int shift : {16, 8, 0}) {
                const auto part = (pixel >> shift) & 0xff;
                pixmap.bytes +=
                    static_cast<char>(alpha == 0 ? 0 : std::min(255U, (part * 255 + alpha / 2) / alpha));
            }
        }
    }
    return pixmap;
}

std::vector<TrayItem::Pixmap> trayImages(std::int64_t count) {
    std::vector<TrayItem::Pixmap> images;
    for (const int size : {22, 24, 32, 48})
        images.push_back(image(size, count));
    return images;
}

} // namespace kelvadrome
