#include "Kelvadrome/gtk/Inspector.h"

#include <gtkmm/label.h>

namespace kelvadrome {

namespace {

Gtk::Label* text(const std::string& words, const char* style) {
    auto* const label = Gtk::make_managed<Gtk::Label>(words);
    label->set_xalign(0);
    label->set_wrap(true);
    label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
    label->add_css_class(style);
    return label;
}

} // namespace

InspectorPane::InspectorPane() {
    set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    set_size_request(280, -1);
    add_css_class("inspector");
    groups_.set_margin(18);
    set_child(groups_);
}

void InspectorPane::show(const AppState& state) {
    auto fresh = inspectorGroups(state);
    if (fresh == shown_)
        return;
    shown_ = std::move(fresh);
    while (auto* const child = groups_.get_first_child())
        groups_.remove(*child);
    for (const auto& group : shown_) {
        auto* const box = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL, 6);
        box->append(*text(group.title, "heading"));
        for (const auto& row : group.rows) {
            auto* const pair = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
            if (!row.title.empty())
                pair->append(*text(row.title, "fact-name"));
            auto* const value = text(row.value, row.title.empty() ? "log" : "fact");
            value->set_selectable(true);
            pair->append(*value);
            box->append(*pair);
        }
        groups_.append(*box);
    }
}

} // namespace kelvadrome
