#include "Kelvadrome/gtk/strip/StripWindow.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/WindowHints.h"

#include <giomm/menu.h>

#include <algorithm>
#include <gtkmm/gestureclick.h>

namespace kelvadrome {

namespace {

constexpr int width = 280;
constexpr int height = 40;
constexpr std::size_t lampsShown = 8; // what fits beside the headline

} // namespace

AgentStripWindow::AgentStripWindow(Presses presses) : presses_(std::move(presses)) {
    set_title("kelvadrome agents");
    set_name("strip");
    set_decorated(false);
    set_resizable(false);
    set_hide_on_close(true);
    set_focusable(false);
    add_css_class("strip-window");
    WindowHints::squareWithoutCompositor(*this);
    row_.set_size_request(width, height);
    row_.set_margin_start(6);
    press_.add_css_class("flat");
    press_.set_focus_on_click(false);
    press_.set_hexpand(true);
    press_.set_halign(Gtk::Align::END);
    press_.signal_clicked().connect(presses_.open);
    handle_.set_child(row_);
    set_child(handle_);
    actions_->add_action("open", presses_.open);
    actions_->add_action("hide", presses_.hide);
    actions_->add_action_with_parameter(
        "agent", Glib::VARIANT_TYPE_STRING, [this](const Glib::VariantBase& id) {
            presses_.agent(Glib::VariantBase::cast_dynamic<Glib::Variant<Glib::ustring>>(id).get());
        });
    insert_action_group("strip", actions_);
    menu_.set_parent(handle_);
    menu_.set_has_arrow(false);
    const auto click = Gtk::GestureClick::create();
    click->set_button(GDK_BUTTON_SECONDARY);
    click->set_propagation_phase(Gtk::PropagationPhase::CAPTURE); // before the handle's menu of the window
    click->signal_pressed().connect([this, click](int, double x, double y) {
        click->set_state(Gtk::EventSequenceState::CLAIMED);
        openMenu(x, y);
    });
    handle_.add_controller(click);
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
    if (std::exchange(shown_, strip) != strip)
        build();
    if (!get_visible())
        set_visible(true); // not presented: that would take the focus
}

void AgentStripWindow::build() {
    while (auto* const child = row_.get_first_child())
        row_.remove(*child);
    const auto lines = presses_.tell ? presses_.tell() : std::vector<AgentLine>();
    const auto shown = std::min(shown_->items.size(), lampsShown);
    for (std::size_t i = 0; i < shown; ++i)
        addLamp(shown_->items[i], lines);
    if (shown < shown_->items.size()) {
        auto* const more = Gtk::make_managed<Gtk::Label>("+" + std::to_string(shown_->items.size() - shown));
        more->set_tooltip_text("More agents: a press with the other button lists all");
        row_.append(*more);
    }
    auto* const headline = Gtk::make_managed<Gtk::Label>(shown_->headline());
    headline->add_css_class("heading");
    press_.set_child(*headline);
    setAccessibleName(press_, "Agents: " + shown_->headline() + ". Open the Inbox.");
    row_.append(press_);
}

void AgentStripWindow::addLamp(const AgentStrip::Item& item, const std::vector<AgentLine>& lines) {
    const auto line = std::ranges::find(lines, item.id, &AgentLine::id);
    auto* const lamp = Gtk::make_managed<Gtk::Box>();
    lamp->add_css_class("lamp");
    lamp->add_css_class(std::string(rawValue(item.lamp)));
    lamp->set_valign(Gtk::Align::CENTER);
    lamp->set_halign(Gtk::Align::CENTER);
    auto* const press = Gtk::make_managed<Gtk::Button>();
    press->set_child(*lamp);
    press->add_css_class("flat");
    press->add_css_class("lamp-button");
    press->set_focus_on_click(false);
    press->set_valign(Gtk::Align::CENTER);
    const auto words = line == lines.end() ? item.label + ": " + item.words : sentenceOf(*line);
    press->set_tooltip_text(words);
    setAccessibleName(*press, words);
    press->signal_clicked().connect([this, id = item.id] { presses_.agent(id); });
    row_.append(*press);
}

void AgentStripWindow::openMenu(double x, double y) {
    const auto menu = Gio::Menu::create();
    const auto agents = Gio::Menu::create();
    for (const auto& line : presses_.tell ? presses_.tell() : std::vector<AgentLine>()) {
        const auto entry = Gio::MenuItem::create(sentenceOf(line), Glib::ustring());
        entry->set_action_and_target("strip.agent", Glib::Variant<Glib::ustring>::create(line.id));
        agents->append_item(entry);
    }
    menu->append_section({}, agents);
    const auto own = Gio::Menu::create();
    own->append("Open the Inbox", "strip.open");
    own->append("Hide Agent Strip", "strip.hide");
    menu->append_section({}, own);
    menu_.set_menu_model(menu);
    menu_.set_pointing_to(Gdk::Rectangle(static_cast<int>(x), static_cast<int>(y), 1, 1));
    menu_.popup();
}

} // namespace kelvadrome
