#include "Kelvadrome/gtk/panel/PanelWindow.h"

#include "Kelvadrome/gtk/parts/WindowHints.h"

#include <algorithm>
#include <gdkmm/surface.h>
#include <gtkmm/eventcontrollerkey.h>
#include <gtkmm/shortcutcontroller.h>

namespace kelvadrome {

namespace {

constexpr int width = 380;
constexpr int shortest = 320; // what it may grow to on the smallest of screens
constexpr int aroundIt = 80;  // of the screen's height, for bars and a margin

using OwnedMonitor =
    std::unique_ptr<GdkMonitor, decltype([](GdkMonitor* monitor) { g_object_unref(monitor); })>;

/// What the panel may grow to: it can open on any of the screens.
int tallest() {
    auto* const monitors = gdk_display_get_monitors(gdk_display_get_default());
    int height = 900;
    for (guint i = 0; i < g_list_model_get_n_items(monitors); ++i) {
        const OwnedMonitor monitor(GDK_MONITOR(g_list_model_get_item(monitors, i)));
        GdkRectangle place;
        gdk_monitor_get_geometry(monitor.get(), &place);
        height = i == 0 ? place.height : std::min(height, place.height);
    }
    return std::max(shortest, height - aroundIt);
}

} // namespace

PanelWindow::PanelWindow(
    std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, PanelView::Effects effects)
    : view_(std::move(model), std::move(clock), [&] {
          auto all = std::move(effects);
          all.done = [this] { set_visible(false); };
          return all;
      }()) {
    set_title("What needs you");
    set_name("panel");
    set_decorated(false);
    set_resizable(false);
    set_hide_on_close(true);
    add_css_class("panel-window");
    WindowHints::squareWithoutCompositor(*this);
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_propagate_natural_height(true);
    scroller_.set_size_request(width, -1);
    scroller_.set_child(view_);
    set_child(scroller_);

    const auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType) {
            if (key != GDK_KEY_Escape)
                return false;
            leave();
            return true;
        },
        false);
    add_controller(keys);
    property_is_active().signal_changed().connect([this] {
        if (!is_active() && get_visible())
            set_visible(false);
    });
    // Its size is known only after it has been mapped, and grows with its rows.
    signal_realize().connect([this] {
        get_surface()->signal_layout().connect([this](int, int height) {
            if (get_mapped() && height != std::exchange(placedHeight_, height))
                WindowHints::panel(*this, place_, near_);
        });
    });
    signal_map().connect([this] {
        placedHeight_ = 0;
        WindowHints::panel(*this, place_, near_);
        view_.setShown(true);
    });
    signal_hide().connect([this] { view_.setShown(false); });
}

void PanelWindow::toggle(std::optional<std::pair<int, int>> place) {
    if (get_visible()) {
        leave();
    } else {
        open(place);
    }
}

void PanelWindow::open(std::optional<std::pair<int, int>> place) {
    place_ = place;
    scroller_.set_max_content_height(tallest());
    const auto windows = list_toplevels();
    const auto active =
        std::ranges::find_if(windows, [](Gtk::Window* window) { return window->is_active(); });
    before_ = active == windows.end() ? nullptr : *active;
    near_ = before_ ? WindowHints::middle(*before_) : std::nullopt;
    present();
    view_.focusFirst();
    set_focus_visible(!place); // by keys, then
}

/// Some window managers don't give the focus back to a window that isn't in their list.
void PanelWindow::leave() {
    set_visible(false);
    const auto windows = list_toplevels();
    if (std::ranges::find(windows, before_) != windows.end() && before_->get_visible())
        before_->present();
}

} // namespace kelvadrome
