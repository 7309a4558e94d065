#pragma once

#include "Kelvadrome/gtk/settings/KeyRecorderButton.h"
#include "Kelvadrome/gtk/web/GLibPointers.h"
#include "Kelvadrome/model/SettingsRows.h"

#include <adwaita.h>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

/// One row of the settings as a widget. Shows what it is given and forwards what the user does.
class SettingsRowView {
public:
    struct Presses {
        std::function<void(std::string id, bool on)> toggle;
        std::function<void(std::string id, std::size_t index)> choose;
        std::function<void(std::string id)> press;
        std::function<void(std::string id, std::string text)> edit;
        std::function<void(std::string id)> submit;
        std::function<void(std::string id, std::string keys)> record; // as a label; empty when they make none
    };

    /// `presses` outlives the view.
    SettingsRowView(const SettingsRow& row, const Presses& presses);
    ~SettingsRowView();
    SettingsRowView(const SettingsRowView&) = delete;
    SettingsRowView& operator=(const SettingsRowView&) = delete;

    /// Whether the row can be shown by this widget: the same thing, with the same kind of control.
    bool fits(const SettingsRow& row) const;
    void show(const SettingsRow& row);
    GtkWidget* widget() const { return GTK_WIDGET(widget_.get()); }
    /// Of a field.
    void takeFocus();

private:
    void make(const SettingsRow& row);
    void makeControl(const SettingsRow& row);
    void makeChoice(const SettingsRow::Choice& choice);
    void makeButtons(const SettingsRow::Presses& presses);
    void makeField(const SettingsRow::Field& field);
    void makePicture();
    void makeRecorder();
    void addSuffix(GtkWidget* widget);
    void showControl(const SettingsRow& row);
    void showButtons(const SettingsRow& row, const SettingsRow::Presses& presses);
    void showField(const SettingsRow& row, const SettingsRow::Field& field);

    const Presses& presses_;
    SettingsRow shown_;
    std::shared_ptr<AdwPreferencesRow> widget_;
    std::shared_ptr<GtkSwitch> switch_;
    std::vector<std::shared_ptr<GtkButton>> buttons_;
    std::shared_ptr<GtkEditable> field_;
    std::unique_ptr<KeyRecorderButton> recorder_;
    GtkWidget* picture_ = nullptr; // the widget's
    GtkLabel* value_ = nullptr;    // the widget's
    std::vector<std::unique_ptr<SettingsRowView>> folded_;
    bool showing_ = false; // what changes now is no press
};

} // namespace kelvadrome
