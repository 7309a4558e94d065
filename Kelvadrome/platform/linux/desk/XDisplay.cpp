#include "Kelvadrome/platform/linux/desk/XDisplay.h"

#include <cstring>

namespace kelvadrome {

XDisplay::XDisplay() : connection_(xcb_connect(nullptr, &screen_)) {
    if (!lost())
        ready_ = xcb_ewmh_init_atoms_replies(&ewmh_, xcb_ewmh_init_atoms(get(), &ewmh_), nullptr);
    if (ready_ && (screen_ < 0 || screen_ >= ewmh_.nb_screens))
        ready_ = false;
}

XDisplay::~XDisplay() {
    xcb_ewmh_connection_wipe(&ewmh_);
}

bool XDisplay::isSession() {
    const char* const wayland = std::getenv("WAYLAND_DISPLAY");
    const char* const x = std::getenv("DISPLAY");
    return !(wayland && *wayland) && x && *x;
}

XDisplay* XDisplay::connected(std::unique_ptr<XDisplay>& display) {
    if (!isSession())
        return nullptr;
    if (!display || display->lost())
        display = std::make_unique<XDisplay>();
    return display->ready() ? display.get() : nullptr;
}

std::vector<xcb_window_t> XDisplay::list(auto ask, auto read) {
    xcb_ewmh_get_windows_reply_t reply;
    if (!ready_ || !read(&ewmh_, ask(&ewmh_, screen_), &reply, nullptr))
        return {};
    std::vector<xcb_window_t> windows(reply.windows, reply.windows + reply.windows_len);
    xcb_ewmh_get_windows_reply_wipe(&reply);
    return windows;
}

std::vector<xcb_window_t> XDisplay::oldestFirst() {
    return list(xcb_ewmh_get_client_list, xcb_ewmh_get_client_list_reply);
}

std::vector<xcb_window_t> XDisplay::lowestFirst() {
    return list(xcb_ewmh_get_client_list_stacking, xcb_ewmh_get_client_list_stacking_reply);
}

std::optional<xcb_window_t> XDisplay::active() {
    xcb_window_t window = XCB_NONE;
    if (!xcb_ewmh_get_active_window_reply(
            &ewmh_, xcb_ewmh_get_active_window(&ewmh_, screen_), &window, nullptr) ||
        window == XCB_NONE)
        return std::nullopt;
    return window;
}

std::optional<std::uint32_t> XDisplay::currentDesktop() {
    std::uint32_t desktop = 0;
    if (!xcb_ewmh_get_current_desktop_reply(
            &ewmh_, xcb_ewmh_get_current_desktop(&ewmh_, screen_), &desktop, nullptr))
        return std::nullopt;
    return desktop;
}

void XDisplay::bringForward(xcb_window_t window, xcb_timestamp_t time) {
    // As a pager asks it: a press of the user stands behind it, wherever the focus is.
    xcb_ewmh_request_change_active_window(
        &ewmh_, screen_, window, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER, time, XCB_NONE);
    xcb_flush(get());
}

xcb_get_property_cookie_t XDisplay::ask(
    xcb_window_t window, xcb_atom_t property, xcb_atom_t type, std::uint32_t bytes) {
    return xcb_get_property(get(), 0, window, property, type, 0, bytes / 4);
}

std::string XDisplay::text(xcb_get_property_cookie_t asked) {
    const OwnedReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(get(), asked, nullptr));
    if (!reply)
        return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
        static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

std::vector<std::uint32_t> XDisplay::words(xcb_get_property_cookie_t asked) {
    const auto bytes = text(asked);
    std::vector<std::uint32_t> words(bytes.size() / sizeof(std::uint32_t));
    if (!words.empty())
        std::memcpy(words.data(), bytes.data(), words.size() * sizeof(std::uint32_t));
    return words;
}

xcb_atom_t XDisplay::atom(const std::string& name) {
    const OwnedReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        get(), xcb_intern_atom(get(), 0, static_cast<std::uint16_t>(name.size()), name.c_str()), nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

std::optional<std::uint32_t> XDisplay::pid(xcb_window_t window) {
    std::uint32_t pid = 0;
    if (!xcb_ewmh_get_wm_pid_reply(&ewmh_, xcb_ewmh_get_wm_pid(&ewmh_, window), &pid, nullptr))
        return std::nullopt;
    return pid;
}

} // namespace kelvadrome
