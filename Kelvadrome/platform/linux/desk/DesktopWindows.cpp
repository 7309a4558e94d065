#include "Kelvadrome/platform/linux/desk/DesktopWindows.h"

#include "Kelvadrome/platform/linux/desk/XDisplay.h"

#include <algorithm>
#include <limits>
#include <unistd.h>
#include <xcb/res.h>

namespace kelvadrome {

namespace {

constexpr std::uint32_t everyDesktop = 0xFFFFFFFF;
constexpr std::uint32_t listLimit = 256; // bytes

/// What was asked about one window, all before the first answer is waited for.
struct Asked {
    xcb_window_t window;
    xcb_get_window_attributes_cookie_t attributes;
    xcb_get_geometry_cookie_t geometry;
    xcb_get_property_cookie_t pid, types, states, desktop, opacity;
};

Asked askAbout(XDisplay& display, xcb_window_t window, xcb_atom_t opacity) {
    auto* const x = display.get();
    const auto& names = *display.ewmh();
    return {window, xcb_get_window_attributes(x, window), xcb_get_geometry(x, window),
        display.ask(window, names._NET_WM_PID, XCB_ATOM_CARDINAL, 4),
        display.ask(window, names._NET_WM_WINDOW_TYPE, XCB_ATOM_ATOM, listLimit),
        display.ask(window, names._NET_WM_STATE, XCB_ATOM_ATOM, listLimit),
        display.ask(window, names._NET_WM_DESKTOP, XCB_ATOM_CARDINAL, 4),
        display.ask(window, opacity, XCB_ATOM_CARDINAL, 4)};
}

std::optional<std::uint32_t> first(const std::vector<std::uint32_t>& words) {
    return words.empty() ? std::nullopt : std::optional(words.front());
}

/// The process at the other end of the window's connection, for a window that doesn't tell by itself. Absent
/// for one of another machine.
std::optional<std::uint32_t> clientPid(XDisplay& display, xcb_window_t window) {
    auto* const x = display.get();
    const auto* const extension = xcb_get_extension_data(x, &xcb_res_id);
    if (!extension || !extension->present)
        return std::nullopt;
    const xcb_res_client_id_spec_t which{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const OwnedReply<xcb_res_query_client_ids_reply_t> reply(
        xcb_res_query_client_ids_reply(x, xcb_res_query_client_ids(x, 1, &which), nullptr));
    if (!reply)
        return std::nullopt;
    for (auto it = xcb_res_query_client_ids_ids_iterator(reply.get()); it.rem > 0;
         xcb_res_client_id_value_next(&it)) {
        if ((it.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) && it.data->length >= 4)
            return *xcb_res_client_id_value_value(it.data);
    }
    return std::nullopt;
}

std::int32_t ownerOf(XDisplay& display, xcb_window_t window, std::optional<std::uint32_t> pid) {
    constexpr std::uint32_t most = std::numeric_limits<std::int32_t>::max();
    if (!pid || *pid == 0 || *pid > most)
        pid = clientPid(display, window);
    if (!pid || *pid == 0 || *pid > most)
        return -static_cast<std::int32_t>(window); // its numbers have 29 bits
    return static_cast<std::int32_t>(*pid);
}

/// The first type that is known counts; a window without one is an ordinary one.
std::int64_t layerOf(const xcb_ewmh_connection_t& names, const std::vector<std::uint32_t>& types) {
    for (const auto type : types) {
        if (type == names._NET_WM_WINDOW_TYPE_NORMAL || type == names._NET_WM_WINDOW_TYPE_DIALOG ||
            type == names._NET_WM_WINDOW_TYPE_UTILITY)
            return 0;
        if (type == names._NET_WM_WINDOW_TYPE_DESKTOP || type == names._NET_WM_WINDOW_TYPE_DOCK ||
            type == names._NET_WM_WINDOW_TYPE_TOOLBAR || type == names._NET_WM_WINDOW_TYPE_MENU ||
            type == names._NET_WM_WINDOW_TYPE_SPLASH || type == names._NET_WM_WINDOW_TYPE_NOTIFICATION)
            return 1;
    }
    return 0;
}

/// Absent when the window has gone.
std::optional<WindowInfo> read(
    XDisplay& display, const Asked& asked, std::optional<std::uint32_t> currentDesktop) {
    auto* const x = display.get();
    const auto& names = *display.ewmh();
    const OwnedReply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(x, asked.attributes, nullptr));
    const OwnedReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(x, asked.geometry, nullptr));
    const auto pid = first(display.words(asked.pid));
    const auto types = display.words(asked.types);
    const auto states = display.words(asked.states);
    const auto desktop = first(display.words(asked.desktop));
    const auto opacity = first(display.words(asked.opacity));
    if (!attributes || !geometry)
        return std::nullopt;
    const bool here = !desktop || *desktop == everyDesktop || !currentDesktop || desktop == currentDesktop;
    const bool hidden = std::ranges::find(states, names._NET_WM_STATE_HIDDEN) != states.end();
    WindowInfo info;
    info.id = asked.window;
    info.ownerPID = ownerOf(display, asked.window, pid);
    info.layer = layerOf(names, types);
    info.width = geometry->width;
    info.height = geometry->height;
    if (opacity)
        info.alpha = double(*opacity) / double(0xFFFFFFFF);
    info.onScreen = attributes->map_state == XCB_MAP_STATE_VIEWABLE && here && !hidden;
    return info;
}

} // namespace

DesktopWindows::DesktopWindows() = default;
DesktopWindows::~DesktopWindows() = default;

std::vector<WindowInfo> DesktopWindows::windows() {
    auto* const display = XDisplay::connected(display_);
    if (!display)
        return {};
    const auto opacity = display->atom("_NET_WM_WINDOW_OPACITY");
    const auto desktop = display->currentDesktop();
    std::vector<Asked> asked;
    for (const auto window : display->lowestFirst())
        asked.push_back(askAbout(*display, window, opacity));
    std::vector<WindowInfo> found;
    for (const auto& one : asked) {
        if (auto info = read(*display, one, desktop))
            found.push_back(*info);
    }
    std::ranges::reverse(found);
    return found;
}

std::optional<std::uint32_t> DesktopWindows::frontWindow(std::optional<std::int32_t> owner) {
    const auto picked = FrontWindow::pick(windows(), owner, ::getpid());
    return picked ? std::optional(picked->id) : std::nullopt;
}

std::optional<FrontApplication> DesktopWindows::frontApplication() {
    auto* const display = XDisplay::connected(display_);
    const auto window = display ? display->active() : std::nullopt;
    if (!window)
        return std::nullopt;
    return FrontApplication{ownerOf(*display, *window, display->pid(*window)), *window};
}

void DesktopWindows::activate(const FrontApplication& application, std::uint32_t serverTime) {
    if (auto* const display = XDisplay::connected(display_))
        display->bringForward(application.window, serverTime);
}

} // namespace kelvadrome
