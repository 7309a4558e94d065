#include "Kelvadrome/gtk/parts/Theme.h"

#include "Kelvadrome/gtk/parts/Design.h"

#include <adwaita.h>
#include <string>

namespace kelvadrome::Theme {

namespace {

/// What the toolkit's own high contrast doesn't reach.
constexpr const char* highContrastSheet = R"css(
.lamp, .count, .question { box-shadow: 0 0 0 1px currentColor; }
.question.high-risk { box-shadow: 0 0 0 3px @kd_danger_edge; }
.panel-window, .strip-window { box-shadow: inset 0 0 0 1px currentColor; }
)css";

/// The display keeps it; what is handed out is only looked at.
GtkCssProvider* addSheet(const char* text, unsigned rank) {
    auto* const provider = gtk_css_provider_new();
    gtk_css_provider_load_from_data(provider, text, -1);
    gtk_style_context_add_provider_for_display(gdk_display_get_default(), GTK_STYLE_PROVIDER(provider),
        GTK_STYLE_PROVIDER_PRIORITY_APPLICATION + rank);
    g_object_unref(provider);
    return provider;
}

void followScheme(AdwStyleManager* manager, GParamSpec*, gpointer sheet) {
    const bool dark = adw_style_manager_get_dark(manager);
    const bool high = adw_style_manager_get_high_contrast(manager);
    const std::string rules =
        high ? std::string(dark ? Design::darkContrastColours : Design::lightContrastColours) +
                   highContrastSheet
             : std::string(dark ? Design::darkColours : Design::lightColours);
    gtk_css_provider_load_from_data(static_cast<GtkCssProvider*>(sheet), rules.c_str(), -1);
}

} // namespace

void install() {
    // A label that is reached by the keys is read, not about to be replaced.
    g_object_set(gtk_settings_get_default(), "gtk-label-select-on-focus", FALSE, nullptr);
    addSheet(Design::sheet, 0);
    auto* const manager = adw_style_manager_get_default();
    auto* const colours = addSheet("", 1);
    for (const auto* const change : {"notify::dark", "notify::high-contrast"})
        g_signal_connect(manager, change, G_CALLBACK(followScheme), colours);
    followScheme(manager, nullptr, colours);
}

void apply(Appearance appearance) {
    adw_style_manager_set_color_scheme(
        adw_style_manager_get_default(), appearance == Appearance::dark    ? ADW_COLOR_SCHEME_FORCE_DARK
                                         : appearance == Appearance::light ? ADW_COLOR_SCHEME_FORCE_LIGHT
                                                                           : ADW_COLOR_SCHEME_DEFAULT);
}

} // namespace kelvadrome::Theme
