#include "Kelvadrome/gtk/settings/SettingsRowView.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr int fieldWidth = 20;    // characters
constexpr int pictureMargin = 12; // points
// So that a picture is drawn pixel for pixel on a screen of twice the usual density.
constexpr int pixelsPerPoint = 2;

const SettingsRow::Choice* choiceOf(const SettingsRow& row) {
    return std::get_if<SettingsRow::Choice>(&row.control);
}

/// What tells the row's buttons from those of another.
std::vector<std::string> buttonIds(const SettingsRow& row) {
    std::vector<std::string> ids;
    if (const auto* const presses = std::get_if<SettingsRow::Presses>(&row.control)) {
        for (const auto& button : presses->buttons)
            ids.push_back(button.id);
    }
    return ids;
}

bool isSecret(const SettingsRow& row) {
    const auto* const field = std::get_if<SettingsRow::Field>(&row.control);
    return field && field->secret;
}

GtkStringList* stringList(const std::vector<std::string>& words) {
    auto* const list = gtk_string_list_new(nullptr);
    for (const auto& word : words)
        gtk_string_list_append(list, word.c_str());
    return list;
}

using Shown = std::shared_ptr<const GreyPicture>;

void drawPicture(GtkDrawingArea*, cairo_t* on, int width, int height, gpointer of) {
    const auto& picture = **static_cast<const Shown*>(of);
    const auto across = static_cast<int>(picture.width);
    const auto down = static_cast<int>(picture.height);
    auto* const surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, across, down);
    auto* const bytes = cairo_image_surface_get_data(surface);
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
    for (std::size_t y = 0; bytes && y < picture.height; ++y) {
        for (std::size_t x = 0; x < picture.width; ++x)
            std::fill_n(bytes + y * stride + x * 4, 4, picture.pixels[y * picture.width + x]);
    }
    cairo_surface_mark_dirty(surface);
    const int left = (width - across / pixelsPerPoint) / 2;
    const int top = (height - down / pixelsPerPoint) / 2;
    cairo_translate(on, left, top);
    cairo_scale(on, 1.0 / pixelsPerPoint, 1.0 / pixelsPerPoint);
    cairo_set_source_surface(on, surface, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(on), CAIRO_FILTER_NEAREST);
    cairo_paint(on);
    cairo_surface_destroy(surface);
}

void showPicture(GtkWidget* widget, const Shown& picture) {
    auto* const area = GTK_DRAWING_AREA(widget);
    gtk_drawing_area_set_content_width(area, picture ? static_cast<int>(picture->width) / pixelsPerPoint : 0);
    gtk_drawing_area_set_content_height(
        area, picture ? static_cast<int>(picture->height) / pixelsPerPoint : 0);
    if (!picture) {
        gtk_drawing_area_set_draw_func(area, nullptr, nullptr, nullptr);
        return;
    }
    gtk_drawing_area_set_draw_func(area, drawPicture, std::make_unique<Shown>(picture).release(),
        [](gpointer of) { std::unique_ptr<Shown>(static_cast<Shown*>(of)); });
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
    for (const auto& button : buttons_)
        g_signal_handlers_disconnect_by_data(button.get(), this);
    if (field_)
        g_signal_handlers_disconnect_by_data(field_.get(), this);
}

bool SettingsRowView::fits(const SettingsRow& row) const {
    const auto* const mine = choiceOf(shown_);
    const auto* const other = choiceOf(row);
    return row.id == shown_.id && row.control.index() == shown_.control.index() &&
           row.value.empty() == shown_.value.empty() && (!mine || mine->words == other->words) &&
           buttonIds(row) == buttonIds(shown_) && isSecret(row) == isSecret(shown_) &&
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
        makeChoice(*choice);
    } else {
        widget_ = share(ADW_PREFERENCES_ROW(adw_action_row_new()));
    }
    adw_preferences_row_set_use_markup(widget_.get(), FALSE);
    if (!row.value.empty()) {
        value_ = GTK_LABEL(gtk_label_new(nullptr));
        gtk_widget_add_css_class(GTK_WIDGET(value_), "dim-label");
        addSuffix(GTK_WIDGET(value_));
    }
    makeControl(row);
}

void SettingsRowView::makeChoice(const SettingsRow::Choice& choice) {
    widget_ = share(ADW_PREFERENCES_ROW(adw_combo_row_new()));
    auto* const words = stringList(choice.words);
    adw_combo_row_set_model(ADW_COMBO_ROW(widget_.get()), G_LIST_MODEL(words));
    g_object_unref(words);
    g_signal_connect_swapped(widget_.get(), "notify::selected", G_CALLBACK(+[](SettingsRowView* self) {
        if (!self->showing_)
            self->presses_.choose(
                self->shown_.id, adw_combo_row_get_selected(ADW_COMBO_ROW(self->widget_.get())));
    }),
        this);
}

void SettingsRowView::makeControl(const SettingsRow& row) {
    GtkWidget* control = nullptr; // a press anywhere on the row is one on it
    if (std::holds_alternative<SettingsRow::Toggle>(row.control)) {
        switch_ = share(GTK_SWITCH(gtk_switch_new()));
        g_signal_connect_swapped(switch_.get(), "notify::active", G_CALLBACK(+[](SettingsRowView* self) {
            if (!self->showing_)
                self->presses_.toggle(self->shown_.id, gtk_switch_get_active(self->switch_.get()));
        }),
            this);
        control = GTK_WIDGET(switch_.get());
        addSuffix(control);
    } else if (std::holds_alternative<SettingsRow::Press>(row.control)) {
        buttons_.push_back(share(GTK_BUTTON(gtk_button_new())));
        g_signal_connect_swapped(buttons_.front().get(), "clicked",
            G_CALLBACK(+[](SettingsRowView* self) { self->presses_.press(self->shown_.id); }), this);
        control = GTK_WIDGET(buttons_.front().get());
        addSuffix(control);
    } else if (const auto* const presses = std::get_if<SettingsRow::Presses>(&row.control)) {
        makeButtons(*presses);
    } else if (const auto* const field = std::get_if<SettingsRow::Field>(&row.control)) {
        makeField(*field);
        control = GTK_WIDGET(field_.get());
        addSuffix(control);
    } else if (std::holds_alternative<SettingsRow::Picture>(row.control)) {
        makePicture();
    } else if (std::holds_alternative<SettingsRow::KeyRecorder>(row.control)) {
        makeRecorder();
        control = recorder_->widget();
    }
    if (control)
        adw_action_row_set_activatable_widget(ADW_ACTION_ROW(widget_.get()), control);
}

void SettingsRowView::makeButtons(const SettingsRow::Presses& presses) {
    const auto pressed = +[](GtkButton* button, SettingsRowView* self) {
        const auto at = std::ranges::find(self->buttons_, button, &std::shared_ptr<GtkButton>::get);
        const auto& shown = std::get<SettingsRow::Presses>(self->shown_.control).buttons;
        self->presses_.press(shown.at(static_cast<std::size_t>(at - self->buttons_.begin())).id);
    };
    for (const auto& one : presses.buttons) {
        buttons_.push_back(share(GTK_BUTTON(gtk_button_new())));
        auto* const button = buttons_.back().get();
        if (one.chief)
            gtk_widget_add_css_class(GTK_WIDGET(button), "suggested-action");
        g_signal_connect(button, "clicked", G_CALLBACK(pressed), this);
        addSuffix(GTK_WIDGET(button));
    }
}

void SettingsRowView::makeField(const SettingsRow::Field& field) {
    auto* const made = field.secret ? gtk_password_entry_new() : gtk_entry_new();
    if (field.secret)
        gtk_password_entry_set_show_peek_icon(GTK_PASSWORD_ENTRY(made), TRUE);
    field_ = share(GTK_EDITABLE(made));
    gtk_editable_set_width_chars(field_.get(), fieldWidth);
    g_signal_connect_swapped(field_.get(), "changed", G_CALLBACK(+[](SettingsRowView* self) {
        if (!self->showing_)
            self->presses_.edit(self->shown_.id, gtk_editable_get_text(self->field_.get()));
    }),
        this);
    g_signal_connect_swapped(field_.get(), "activate",
        G_CALLBACK(+[](SettingsRowView* self) { self->presses_.submit(self->shown_.id); }), this);
}

void SettingsRowView::takeFocus() {
    gtk_widget_grab_focus(GTK_WIDGET(field_.get()));
}

void SettingsRowView::makePicture() {
    picture_ =
        GTK_WIDGET(g_object_new(GTK_TYPE_DRAWING_AREA, "accessible-role", GTK_ACCESSIBLE_ROLE_IMG, nullptr));
    gtk_widget_set_margin_top(picture_, pictureMargin);
    gtk_widget_set_margin_bottom(picture_, pictureMargin);
    addSuffix(picture_);
}

void SettingsRowView::makeRecorder() {
    recorder_ = std::make_unique<KeyRecorderButton>([this] { presses_.press(shown_.id); },
        [this](std::string keys) { presses_.record(shown_.id, std::move(keys)); });
    addSuffix(recorder_->widget());
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
        adw_action_row_set_icon_name(
            ADW_ACTION_ROW(widget_.get()), row.symbol.empty() ? nullptr : row.symbol.c_str());
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
    } else if (const auto* const press = std::get_if<SettingsRow::Press>(&row.control)) {
        showButtons(row, {{{row.id, press->words}}});
    } else if (const auto* const presses = std::get_if<SettingsRow::Presses>(&row.control)) {
        showButtons(row, *presses);
    } else if (const auto* const field = std::get_if<SettingsRow::Field>(&row.control)) {
        showField(row, *field);
    } else if (const auto* const picture = std::get_if<SettingsRow::Picture>(&row.control)) {
        showPicture(picture_, picture->shown);
        tell(picture_, picture->description, row.detail);
    } else if (const auto* const keys = std::get_if<SettingsRow::KeyRecorder>(&row.control)) {
        recorder_->show(keys->recording);
        tell(recorder_->widget(), "Change " + row.title, row.detail);
    } else if (const auto* const choice = choiceOf(row)) {
        adw_combo_row_set_selected(ADW_COMBO_ROW(widget_.get()), static_cast<guint>(choice->chosen));
        gtk_widget_set_sensitive(widget(), row.enabled);
        tell(widget(), row.title + ": " + choice->words.at(choice->chosen), row.detail);
    } else if (row.folded.empty()) {
        tell(widget(), row.value.empty() ? row.title : row.title + ": " + row.value, row.detail);
    }
}

void SettingsRowView::showButtons(const SettingsRow& row, const SettingsRow::Presses& presses) {
    for (std::size_t i = 0; i < buttons_.size(); ++i) {
        const auto& [id, words, enabled, chief] = presses.buttons.at(i);
        auto* const button = buttons_[i].get();
        gtk_button_set_label(button, words.c_str());
        gtk_widget_set_sensitive(GTK_WIDGET(button), row.enabled && enabled);
        tell(GTK_WIDGET(button), row.title.empty() ? words : words + ": " + row.title, row.detail);
    }
}

/// What stands in it already stays untouched, and with it the cursor.
void SettingsRowView::showField(const SettingsRow& row, const SettingsRow::Field& field) {
    g_object_set(field_.get(), "placeholder-text", field.hint.c_str(), nullptr);
    if (field.text != gtk_editable_get_text(field_.get())) {
        gtk_editable_set_text(field_.get(), field.text.c_str());
        gtk_editable_set_position(field_.get(), -1);
    }
    gtk_editable_set_editable(field_.get(), row.enabled); // it keeps the focus
    tell(GTK_WIDGET(field_.get()), row.title, field.hint);
}

} // namespace kelvadrome
