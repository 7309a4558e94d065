// The least that a global key can bring: a window with a line of text, shown and hidden by Control Alt N.
#include <glib-unix.h>

#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <gdk/x11/gdkx.h>
#include <gtk/gtk.h>

namespace {

struct Bar {
    Display* keys; // a connection of its own: grabs of the toolkit's don't get each press
    GtkWidget* window;
};

gboolean pressed(int, GIOCondition, gpointer data) {
    const auto* const bar = static_cast<Bar*>(data);
    while (XPending(bar->keys)) {
        XEvent event;
        XNextEvent(bar->keys, &event);
        if (event.type != KeyPress)
            continue;
        if (gtk_widget_get_visible(bar->window)) {
            gtk_widget_set_visible(bar->window, FALSE);
            continue;
        }
        const auto time = static_cast<guint32>(event.xkey.time);
        gdk_x11_surface_set_user_time(gtk_native_get_surface(GTK_NATIVE(bar->window)), time);
        gtk_window_present_with_time(GTK_WINDOW(bar->window), time);
    }
    return TRUE;
}

} // namespace

int main() {
    gtk_init();
    Bar bar{XOpenDisplay(nullptr), gtk_window_new()};
    gtk_window_set_title(GTK_WINDOW(bar.window), "bare bar");
    gtk_window_set_decorated(GTK_WINDOW(bar.window), FALSE);
    gtk_window_set_child(GTK_WINDOW(bar.window), gtk_entry_new());
    gtk_window_set_default_size(GTK_WINDOW(bar.window), 640, -1);
    gtk_widget_realize(bar.window);
    XGrabKey(bar.keys, XKeysymToKeycode(bar.keys, XK_n), ControlMask | Mod1Mask, DefaultRootWindow(bar.keys),
        False, GrabModeAsync, GrabModeAsync);
    XFlush(bar.keys);
    g_unix_fd_add(ConnectionNumber(bar.keys), G_IO_IN, &pressed, &bar);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
