#include "Kelvadrome/gtk/strip/StripWindow.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/WindowHints.h"

namespace kelvadrome {

namespace {

constexpr int width = 280;
constexpr int height = 40;
constexpr std::size_t lampsShown = 8; // what fits beside the headline

} // namespace

AgentStripWindow::AgentStripWindow(std::function<void()> open) {
    set_title("kelvadrome agents");
    set_name("strip");
    set_decorated(false);
    set_resizable(false);
    set_hide_on_close(true);
    set_focusable(false);
    add_css_class("strip-window");
    row_.set_size_request(width - 24, height - 8);
    press_.set_child(row_);
    press_.add_css_class("flat");
    press_.set_focus_on_click(false);
    press_.signal_clicked().connect(std::move(open));
    handle_.set_child(press_);
    set_child(handle_);
    signal_realize().connect([this] { WindowHints::refuseFocus(*this); });
    signal_map().connect([this] { WindowHints::strip(*this, place_); });
    // Shown again with the same surface it would be an ordinary window that takes the focus.
    signal_hide().connect([this] { gtk_widget_unrealize(GTK_WIDGET(gobj())); });
}

void AgentStripWindow::on_unmap() {
    place_ = WindowHints::place(*this);
    Gtk::Window::on_unmap();
}

void AgentStripWindow::update(const std::optional<AgentStrip>& strip) {
    if (!strip)
        return set_visible(false);
    if (shown_ != strip) {
        shown_ = strip;
        while (auto* const child = row_.get_first_child())
            row_.remove(*child);
        for (std::size_t i = 0; i < std::min(strip->items.size(), lampsShown); ++i) {
            const auto& item = strip->items[i];
            auto* const lamp = Gtk::make_managed<Gtk::Box>();
            lamp->add_css_class("lamp");
            lamp->add_css_class(std::string(rawValue(item.lamp)));
            lamp->set_valign(Gtk::Align::CENTER);
            lamp->set_tooltip_text(item.label + ": " + item.words);
            row_.append(*lamp);
        }
        auto* const headline = Gtk::make_managed<Gtk::Label>(strip->headline());
        headline->set_hexpand(true);
        headline->set_xalign(1);
        headline->add_css_class("heading");
        row_.append(*headline);
        setAccessibleName(press_, "Agents: " + strip->headline() + ". Open the Inbox.");
    }
    if (!get_visible())
        set_visible(true); // not presented: that would take the focus
}

} // namespace kelvadrome
