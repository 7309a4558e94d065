#include "Kelvadrome/gtk/parts/Theme.h"

#include <adwaita.h>

namespace kelvadrome::Theme {

namespace {

constexpr const char* sheet = R"css(
.panel { padding: 18px; }
.panel-window, .strip-window { border-radius: 12px; box-shadow: inset 0 0 0 1px alpha(currentColor, .15); }
.question { padding: 12px; }
.question .summary { caret-color: transparent; }
.question .summary:focus-visible { outline: 2px solid @accent_color; outline-offset: 2px; border-radius: 6px; }
.question.high-risk { box-shadow: inset 4px 0 @error_color, 0 0 0 1px alpha(currentColor, .12); }
.question.high-risk:dir(rtl) { box-shadow: inset -4px 0 @error_color, 0 0 0 1px alpha(currentColor, .12); }
.question .summary { font-weight: 600; }
.question .risk { font-size: smaller; font-weight: 700; color: @error_color; }
.question .caption, .sidebar-detail, .fact-name { font-size: smaller; opacity: .75; }
.panel .empty { padding: 18px 0; }
.question progressbar > trough, .question progressbar > trough > progress { min-height: 4px; }

.lamp { min-width: 10px; min-height: 10px; border-radius: 5px; background: alpha(currentColor, .3); }
.lamp.needsYou { background: @warning_color; }
.lamp.working { background: @success_color; }
.lamp.waiting { background: @accent_color; }

.sidebar-heading { font-weight: 700; font-size: smaller; opacity: .75; padding: 18px 14px 6px; }
.count { font-size: smaller; font-weight: 700; padding: 2px 8px; border-radius: 10px; background: alpha(currentColor, .1); }
.inspector .log { font-family: monospace; font-size: smaller; }
.strip-window button { padding: 4px 12px; }
)css";

/// What the toolkit's own high contrast doesn't reach.
constexpr const char* highContrastSheet = R"css(
.question .caption, .sidebar-detail, .sidebar-heading, .fact-name { opacity: 1; }
.lamp, .count, .question { box-shadow: 0 0 0 1px currentColor; }
.question.high-risk, .question.high-risk:dir(rtl) { box-shadow: 0 0 0 3px @error_color; }
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

void followContrast(AdwStyleManager* manager, GParamSpec*, gpointer sheet) {
    const bool high = adw_style_manager_get_high_contrast(manager);
    gtk_css_provider_load_from_data(static_cast<GtkCssProvider*>(sheet), high ? highContrastSheet : "", -1);
}

} // namespace

void install() {
    // A label that is reached by the keys is read, not about to be replaced.
    g_object_set(gtk_settings_get_default(), "gtk-label-select-on-focus", FALSE, nullptr);
    addSheet(sheet, 0);
    auto* const manager = adw_style_manager_get_default();
    auto* const contrast = addSheet("", 1);
    g_signal_connect(manager, "notify::high-contrast", G_CALLBACK(followContrast), contrast);
    followContrast(manager, nullptr, contrast);
}

void apply(Appearance appearance) {
    adw_style_manager_set_color_scheme(
        adw_style_manager_get_default(), appearance == Appearance::dark    ? ADW_COLOR_SCHEME_FORCE_DARK
                                         : appearance == Appearance::light ? ADW_COLOR_SCHEME_FORCE_LIGHT
                                                                           : ADW_COLOR_SCHEME_DEFAULT);
}

} // namespace kelvadrome::Theme
