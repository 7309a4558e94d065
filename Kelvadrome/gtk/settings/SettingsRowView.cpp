#include "Kelvadrome/gtk/settings/SettingsRowView.h"

#include <algorithm>

namespace kelvadrome {

namespace {

const SettingsRow::Choice* choiceOf(const SettingsRow& row) {
    return std::get_if<SettingsRow::Choice>(&row.control);
}

GtkStringList* stringList(const std::vector<std::string>& words) {
    auto* const list = gtk_string_list_new(nullptr);
    for (const auto& word : words)
        gtk_string_list_append(list, word.c_str());
    return list;
}

/// In place of what the row makes of its title, to which GTK 4.8 would add it.
void tell(GtkWidget* widget, const std::string& name, const std::string& more) {
    auto* const told = GTK_ACCESSIBLE(widget);
    gtk_accessible_reset_relation(told, GTK_ACCESSIBLE_RELATION_LABELLED_BY);
    gtk_accessible_update_property(told, GTK_ACCESSIBLE_PROPERTY_LABEL, name.c_str(),
        GTK_ACCESSIBLE_PROPERTY_DESCRIPTION, more.c_str(), -1);
}

} // namespace

SettingsRowView::SettingsRowView(const SettingsRow& row, const Presses& presses) : presses_(presses) {
    make(row);
    show(row);
}

/// Something else may hold a widget on.
SettingsRowView::~SettingsRowView() {
    g_signal_handlers_disconnect_by_data(widget_.get(), this);
    if (switch_)
        g_signal_handlers_disconnect_by_data(switch_.get(), this);
    if (button_)
        g_signal_handlers_disconnect_by_data(button_.get(), this);
}

bool SettingsRowView::fits(const SettingsRow& row) const {
    const auto* const mine = choiceOf(shown_);
    const auto* const other = choiceOf(row);
    return row.id == shown_.id && row.control.index() == shown_.control.index() &&
           row.value.empty() == shown_.value.empty() && (!mine || mine->words == other->words) &&
           std::ranges::equal(row.folded, shown_.folded, {}, &SettingsRow::id, &SettingsRow::id);
}

void SettingsRowView::make(const SettingsRow& row) {
    shown_ = row;
    if (!row.folded.empty()) {
        widget_ = share(ADW_PREFERENCES_ROW(adw_expander_row_new()));
        for (const auto& inner : row.folded) {
            folded_.push_back(std::make_unique<SettingsRowView>(inner, presses_));
            adw_expander_row_add_row(ADW_EXPANDER_ROW(widget_.get()), folded_.back()->widget());
        }
    } else if (const auto* const choice = choiceOf(row)) {
        widget_ = share(ADW_PREFERENCES_ROW(adw_combo_row_new()));
        auto* const words = stringList(choice->words);
        adw_combo_row_set_model(ADW_COMBO_ROW(widget_.get()), G_LIST_MODEL(words));
        g_object_unref(words);
        g_signal_connect_swapped(widget_.get(), "notify::selected", G_CALLBACK(+[](SettingsRowView* self) {
            if (!self->showing_)
                self->presses_.choose(
                    self->shown_.id, adw_combo_row_get_selected(ADW_COMBO_ROW(self->widget_.get())));
        }),
            this);
    } else {
        widget_ = share(ADW_PREFERENCES_ROW(adw_action_row_new()));
    }
    adw_preferences_row_set_use_markup(widget_.get(), FALSE);
    if (!row.value.empty()) {
        value_ = GTK_LABEL(gtk_label_new(nullptr));
        gtk_widget_add_css_class(GTK_WIDGET(value_), "dim-label");
        addSuffix(GTK_WIDGET(value_));
    }
    if (std::holds_alternative<SettingsRow::Toggle>(row.control)) {
        switch_ = share(GTK_SWITCH(gtk_switch_new()));
        g_signal_connect_swapped(switch_.get(), "notify::active", G_CALLBACK(+[](SettingsRowView* self) {
            if (!self->showing_)
                self->presses_.toggle(self->shown_.id, gtk_switch_get_active(self->switch_.get()));
        }),
            this);
        addSuffix(GTK_WIDGET(switch_.get()));
    } else if (std::holds_alternative<SettingsRow::Press>(row.control)) {
        button_ = share(GTK_BUTTON(gtk_button_new()));
        g_signal_connect_swapped(button_.get(), "clicked",
            G_CALLBACK(+[](SettingsRowView* self) { self->presses_.press(self->shown_.id); }), this);
        addSuffix(GTK_WIDGET(button_.get()));
    }
    // A press anywhere on the row is one on its control.
    auto* const control = switch_ ? GTK_WIDGET(switch_.get()) : GTK_WIDGET(button_.get());
    if (control)
        adw_action_row_set_activatable_widget(ADW_ACTION_ROW(widget_.get()), control);
}

void SettingsRowView::addSuffix(GtkWidget* widget) {
    gtk_widget_set_valign(widget, GTK_ALIGN_CENTER);
    adw_action_row_add_suffix(ADW_ACTION_ROW(widget_.get()), widget);
}

void SettingsRowView::show(const SettingsRow& row) {
    showing_ = true;
    shown_ = row;
    adw_preferences_row_set_title(widget_.get(), row.title.c_str());
    if (row.folded.empty()) {
        adw_action_row_set_subtitle(ADW_ACTION_ROW(widget_.get()), row.detail.c_str());
    } else {
        adw_expander_row_set_subtitle(ADW_EXPANDER_ROW(widget_.get()), row.detail.c_str());
    }
    for (std::size_t i = 0; i < folded_.size(); ++i)
        folded_[i]->show(row.folded[i]);
    if (value_)
        gtk_label_set_text(value_, row.value.c_str());
    showControl(row);
    showing_ = false;
}

void SettingsRowView::showControl(const SettingsRow& row) {
    if (switch_) {
        gtk_switch_set_active(switch_.get(), std::get<SettingsRow::Toggle>(row.control).on);
        gtk_widget_set_sensitive(GTK_WIDGET(switch_.get()), row.enabled);
        tell(GTK_WIDGET(switch_.get()), row.title, row.detail);
    } else if (button_) {
        const auto& words = std::get<SettingsRow::Press>(row.control).words;
        gtk_button_set_label(button_.get(), words.c_str());
        gtk_widget_set_sensitive(GTK_WIDGET(button_.get()), row.enabled);
        tell(GTK_WIDGET(button_.get()), words + ": " + row.title, row.detail);
    } else if (const auto* const choice = choiceOf(row)) {
        adw_combo_row_set_selected(ADW_COMBO_ROW(widget_.get()), static_cast<guint>(choice->chosen));
        gtk_widget_set_sensitive(widget(), row.enabled);
        tell(widget(), row.title + ": " + choice->words.at(choice->chosen), row.detail);
    } else if (row.folded.empty()) {
        tell(widget(), row.value.empty() ? row.title : row.title + ": " + row.value, row.detail);
    }
}

} // namespace kelvadrome
