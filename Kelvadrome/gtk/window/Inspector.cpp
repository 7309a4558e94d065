#include "Kelvadrome/gtk/window/Inspector.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/Words.h"

#include <algorithm>

namespace kelvadrome {

namespace {

bool haveSameTitles(const std::vector<InspectorGroup>& left, const std::vector<InspectorGroup>& right) {
    const auto sameRow = [](const InspectorRow& a, const InspectorRow& b) { return a.title == b.title; };
    return std::ranges::equal(left, right, [&](const InspectorGroup& a, const InspectorGroup& b) {
        return a.title == b.title && std::ranges::equal(a.rows, b.rows, sameRow);
    });
}

void tell(Gtk::Label& label, const InspectorGroup& group, const InspectorRow& row) {
    if (label.get_text() != row.value.c_str())
        label.set_text(row.value);
    setAccessibleName(label, (row.title.empty() ? group.title : row.title) + ": " + row.value);
}

} // namespace

InspectorPane::InspectorPane() {
    set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    set_size_request(280, -1);
    add_css_class("inspector");
    groups_.set_margin(18);
    set_child(groups_);
}

/// A value that stays keeps what is selected in it.
void InspectorPane::show(const AppState& state, const SidebarItem::Value& selected) {
    auto fresh = inspectorGroups(state, selected);
    if (fresh == shown_)
        return;
    const bool same = haveSameTitles(fresh, shown_);
    shown_ = std::move(fresh);
    if (!same)
        return rebuild();
    for (std::size_t g = 0; g < shown_.size(); ++g) {
        for (std::size_t r = 0; r < shown_[g].rows.size(); ++r)
            tell(*values_[g][r], shown_[g], shown_[g].rows[r]);
    }
}

void InspectorPane::rebuild() {
    values_.clear();
    while (auto* const child = groups_.get_first_child())
        groups_.remove(*child);
    for (const auto& group : shown_) {
        auto* const box = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL, 6);
        box->append(*wordsLabel(group.title, "heading"));
        auto& values = values_.emplace_back();
        for (const auto& row : group.rows) {
            auto* const pair = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
            if (!row.title.empty())
                pair->append(*wordsLabel(row.title, "fact-name"));
            auto* const value = wordsLabel("", row.title.empty() ? "log" : "fact");
            value->set_selectable(true);
            tell(*value, group, row);
            pair->append(*value);
            box->append(*pair);
            values.push_back(value);
        }
        groups_.append(*box);
    }
}

} // namespace kelvadrome
