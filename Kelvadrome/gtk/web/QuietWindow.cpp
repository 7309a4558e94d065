#include "Kelvadrome/gtk/web/QuietWindow.h"

#ifdef GDK_WINDOWING_X11
#include <gdk/x11/gdkx.h>
#endif

namespace kelvadrome {

/// A window manager gives no focus to a window whose user time is 0.
void showWithoutFocus(Gtk::Window& window) {
    gtk_widget_realize(GTK_WIDGET(window.gobj()));
#ifdef GDK_WINDOWING_X11
    auto* surface = gtk_native_get_surface(GTK_NATIVE(window.gobj()));
    if (GDK_IS_X11_SURFACE(surface))
        gdk_x11_surface_set_user_time(surface, 0);
#endif
    window.set_visible(true);
}

} // namespace kelvadrome
