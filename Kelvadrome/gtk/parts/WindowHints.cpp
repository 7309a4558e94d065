#include "Kelvadrome/gtk/parts/WindowHints.h"

#include "Kelvadrome/glib/GLibOwned.h"
#include "KelvadromeKit/bar/BarPlace.h"

#include <X11/Xatom.h>
#include <algorithm>
#include <cmath>
#include <gdk/wayland/gdkwayland.h>
#include <gdk/x11/gdkx.h>
#include <initializer_list>

namespace kelvadrome::WindowHints {

namespace {

constexpr int edge = 8;

struct Area {
    long x = 0, y = 0, width = 0, height = 0; // device pixels
};

/// An X11 window of ours. Absent on another display system, and before the window is realised.
struct XWindow {
    Display* display;
    Window id;
    int scale;
    int width, height; // device pixels
};

std::optional<XWindow> xWindow(Gtk::Window& window) {
    auto* const surface = gtk_native_get_surface(GTK_NATIVE(window.gobj()));
    if (!surface || !GDK_IS_X11_SURFACE(surface))
        return std::nullopt;
    const int scale = gdk_surface_get_scale_factor(surface);
    return XWindow{gdk_x11_display_get_xdisplay(gdk_surface_get_display(surface)),
        gdk_x11_surface_get_xid(surface), scale, gdk_surface_get_width(surface) * scale,
        gdk_surface_get_height(surface) * scale};
}

Atom atom(const XWindow& window, const char* name) {
    return XInternAtom(window.display, name, False);
}

/// Asks the window manager; before the window is mapped nobody listens.
void ask(const XWindow& window, const char* message, std::initializer_list<long> words) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window.id;
    event.xclient.message_type = atom(window, message);
    event.xclient.format = 32;
    std::ranges::copy(words, event.xclient.data.l);
    XSendEvent(window.display, DefaultRootWindow(window.display), False,
        SubstructureRedirectMask | SubstructureNotifyMask, &event);
}

constexpr long application = 1; // who asks: an ordinary one

void setState(const XWindow& window, bool add, std::initializer_list<const char*> names) {
    for (const auto* name : names)
        ask(window, "_NET_WM_STATE", {add, static_cast<long>(atom(window, name)), 0, application});
}

void dropProtocol(const XWindow& window, const char* name) {
    Atom* protocols = nullptr;
    int count = 0;
    if (!XGetWMProtocols(window.display, window.id, &protocols, &count))
        return;
    auto* const end = std::remove(protocols, protocols + count, atom(window, name));
    XSetWMProtocols(window.display, window.id, protocols, static_cast<int>(end - protocols));
    XFree(protocols);
}

constexpr long everyDesktop = 0xFFFFFFFF;

Area scaled(const GdkRectangle& points, long scale) {
    return {points.x * scale, points.y * scale, points.width * scale, points.height * scale};
}

/// The part of a screen that panels and docks leave free; without a screen, all of the display.
Area workArea(const XWindow& window, GdkMonitor* monitor) {
    if (!monitor) {
        const int screen = DefaultScreen(window.display);
        return {0, 0, DisplayWidth(window.display, screen), DisplayHeight(window.display, screen)};
    }
    GdkRectangle area;
    gdk_x11_monitor_get_workarea(monitor, &area);
    if (area.width <= 0 || area.height <= 0)
        gdk_monitor_get_geometry(monitor, &area);
    return scaled(area, window.scale);
}

/// The first screen.
GdkMonitor* mainMonitor() {
    return gdk_x11_display_get_primary_monitor(gdk_display_get_default());
}

/// The screen that shows this pixel; null when none does, such as after it was unplugged.
GdkMonitor* monitorAt(std::pair<int, int> place, int scale) {
    auto* const monitors = gdk_display_get_monitors(gdk_display_get_default());
    for (guint i = 0; i < g_list_model_get_n_items(monitors); ++i) {
        const OwnedObject<GdkMonitor> monitor(GDK_MONITOR(g_list_model_get_item(monitors, i)));
        GdkRectangle whole;
        gdk_monitor_get_geometry(monitor.get(), &whole);
        const auto area = scaled(whole, scale);
        if (place.first >= area.x && place.first < area.x + area.width && place.second >= area.y &&
            place.second < area.y + area.height)
            return monitor.get(); // the list keeps it
    }
    return nullptr;
}

/// Absent while the pointer is on a display of its own.
std::optional<std::pair<int, int>> pointerPlace(const XWindow& window) {
    Window root = 0, child = 0;
    int x = 0, y = 0, insideX = 0, insideY = 0;
    unsigned buttons = 0;
    if (!XQueryPointer(window.display, DefaultRootWindow(window.display), &root, &child, &x, &y, &insideX,
            &insideY, &buttons))
        return std::nullopt;
    return std::pair(x, y);
}

void moveTo(const XWindow& window, long x, long y) {
    XMoveWindow(window.display, window.id, static_cast<int>(x), static_cast<int>(y));
    XFlush(window.display);
}

} // namespace

void panel(
    Gtk::Window& window, std::optional<std::pair<int, int>> place, std::optional<std::pair<int, int>> near) {
    const auto x11 = xWindow(window);
    if (!x11)
        return;
    setState(*x11, true, {"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER", "_NET_WM_STATE_ABOVE"});
    const auto& point = place ? place : near;
    auto* const monitor = point ? monitorAt(*point, x11->scale) : nullptr;
    const auto area = workArea(*x11, monitor ? monitor : mainMonitor());
    const long right = area.x + area.width - x11->width - edge;
    long x = right, y = area.y + edge;
    if (place) {
        x = std::clamp<long>(place->first - x11->width / 2, area.x + edge, std::max(area.x + edge, right));
        // Below an item at the top of the screen, above one at its foot.
        const bool below = place->second < area.y + area.height / 2;
        y = below ? std::max<long>(place->second + edge, area.y + edge)
                  : std::min<long>(place->second, area.y + area.height) - x11->height - edge;
    }
    moveTo(*x11, x, std::max(y, area.y));
}

void refuseFocus(Gtk::Window& window) {
    const auto x11 = xWindow(window);
    if (!x11)
        return;
    XWMHints hints{};
    if (auto* const present = XGetWMHints(x11->display, x11->id)) {
        hints = *present;
        XFree(present);
    }
    hints.flags |= InputHint;
    hints.input = False;
    XSetWMHints(x11->display, x11->id, &hints);
    // With this one a window is asked to take the focus by itself, and the toolkit would.
    dropProtocol(*x11, "WM_TAKE_FOCUS");
    const unsigned long never = 0;
    XChangeProperty(x11->display, x11->id, atom(*x11, "_NET_WM_USER_TIME"), XA_CARDINAL, 32, PropModeReplace,
        reinterpret_cast<const unsigned char*>(&never), 1);
}

std::optional<std::pair<int, int>> place(Gtk::Window& window) {
    const auto x11 = xWindow(window);
    if (!x11)
        return std::nullopt;
    int x = 0, y = 0;
    Window child = 0;
    XTranslateCoordinates(x11->display, x11->id, DefaultRootWindow(x11->display), 0, 0, &x, &y, &child);
    return std::pair(x, y);
}

std::optional<std::pair<int, int>> middle(Gtk::Window& window) {
    const auto x11 = xWindow(window);
    const auto corner = place(window);
    if (!x11 || !corner)
        return std::nullopt;
    return std::pair(corner->first + x11->width / 2, corner->second + x11->height / 2);
}

void strip(Gtk::Window& window, std::optional<std::pair<int, int>> place) {
    const auto x11 = xWindow(window);
    if (!x11)
        return;
    refuseFocus(window); // again: mapping it wrote the toolkit's own hints
    setState(*x11, true,
        {"_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR",
            "_NET_WM_STATE_SKIP_PAGER"});
    ask(*x11, "_NET_WM_DESKTOP", {everyDesktop, application});
    if (place && monitorAt(*place, x11->scale))
        return moveTo(*x11, place->first, place->second);
    const auto area = workArea(*x11, mainMonitor());
    moveTo(*x11, std::max(area.x, area.x + area.width - 300L * x11->scale), area.y + 56L * x11->scale);
}

void bar(Gtk::Window& window) {
    const auto x11 = xWindow(window);
    if (!x11)
        return;
    setState(*x11, true,
        {"_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR",
            "_NET_WM_STATE_SKIP_PAGER"});
    ask(*x11, "_NET_WM_DESKTOP", {everyDesktop, application});
    const auto pointer = pointerPlace(*x11);
    auto* const monitor = pointer ? monitorAt(*pointer, x11->scale) : nullptr;
    const auto area = workArea(*x11, monitor ? monitor : mainMonitor());
    const double scale = x11->scale;
    const auto place = barPlace({area.x / scale, area.y / scale, area.width / scale, area.height / scale});
    moveTo(*x11, std::lround(place.x * scale), std::lround(place.y * scale));
}

void asIfPressed(Gtk::Window& window) {
    gtk_widget_realize(GTK_WIDGET(window.gobj()));
    if (!xWindow(window))
        return;
    auto* const surface = gtk_native_get_surface(GTK_NATIVE(window.gobj()));
    gdk_x11_surface_set_user_time(surface, gdk_x11_get_server_time(surface));
}

void takeFocus(Gtk::Window& window) {
    auto* const surface = gtk_native_get_surface(GTK_NATIVE(window.gobj()));
    if (!surface)
        return;
    const auto time = GDK_IS_X11_SURFACE(surface) ? gdk_x11_get_server_time(surface) : GDK_CURRENT_TIME;
    gtk_window_present_with_time(window.gobj(), time);
}

void squareWithoutCompositor(Gtk::Window& window) {
    if (!gdk_display_is_composited(gdk_display_get_default()))
        window.add_css_class("square");
}

bool canPlace() {
    auto* const display = gdk_display_get_default();
    return display && GDK_IS_X11_DISPLAY(display);
}

void useActivationToken(const std::string& token) {
    auto* const display = gdk_display_get_default();
    if (token.empty() || !display)
        return;
    if (GDK_IS_X11_DISPLAY(display))
        gdk_x11_display_set_startup_notification_id(display, token.c_str());
    if (GDK_IS_WAYLAND_DISPLAY(display))
        gdk_wayland_display_set_startup_notification_id(display, token.c_str());
}

void skipTaskbar(Gtk::Window& window, bool skip) {
    if (const auto x11 = xWindow(window))
        setState(*x11, skip, {"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"});
}

void resizeCentred(Gtk::Window& window, int width, int height) {
    const auto x11 = xWindow(window);
    if (!x11)
        return window.set_default_size(width, height);
    auto* const surface = gtk_native_get_surface(GTK_NATIVE(window.gobj()));
    auto* const display = gdk_surface_get_display(surface);
    auto* const own = gdk_display_get_monitor_at_surface(display, surface);
    const auto area = workArea(*x11, own ? own : mainMonitor());
    // The frame is what the user sees: the surface without its shadow.
    double shadowX = 0, shadowY = 0;
    gtk_native_get_surface_transform(GTK_NATIVE(window.gobj()), &shadowX, &shadowY);
    const long left = std::lround(shadowX * x11->scale), top = std::lround(shadowY * x11->scale);
    const auto [x, y] = place(window).value_or(std::pair(0, 0));
    const long newWidth = std::min<long>(width * x11->scale, area.width);
    const long newHeight = std::min<long>(height * x11->scale, area.height);
    const auto placed = [](long at, long size, long newSize, long begin, long room) {
        return std::clamp(at + (size - newSize) / 2, begin, begin + room - newSize);
    };
    moveTo(*x11, placed(x + left, window.get_width() * x11->scale, newWidth, area.x, area.width) - left,
        placed(y + top, window.get_height() * x11->scale, newHeight, area.y, area.height) - top);
    window.set_default_size(
        static_cast<int>(newWidth / x11->scale), static_cast<int>(newHeight / x11->scale));
}

} // namespace kelvadrome::WindowHints
