#include "tests/live/desktop/ScreenPicture.h"

#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>
#include <xcb/xcb.h>

namespace kelvadrome::test {

std::size_t screenPicture() {
    const auto disconnect = [](xcb_connection_t* open) { xcb_disconnect(open); };
    const std::unique_ptr<xcb_connection_t, decltype(disconnect)> display(
        xcb_connect(nullptr, nullptr), disconnect);
    if (xcb_connection_has_error(display.get()) != 0)
        return 0;
    const auto* const screen = xcb_setup_roots_iterator(xcb_get_setup(display.get())).data;
    const auto request = xcb_get_image(display.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, screen->root, 0, 0,
        screen->width_in_pixels, screen->height_in_pixels, ~0U);
    const auto release = [](xcb_get_image_reply_t* reply) { std::free(reply); };
    const std::unique_ptr<xcb_get_image_reply_t, decltype(release)> image(
        xcb_get_image_reply(display.get(), request, nullptr), release);
    if (!image)
        return 0;
    const auto* const bytes = reinterpret_cast<const char*>(xcb_get_image_data(image.get()));
    const auto length = static_cast<std::size_t>(xcb_get_image_data_length(image.get()));
    return std::hash<std::string_view>{}(std::string_view(bytes, length));
}

} // namespace kelvadrome::test
