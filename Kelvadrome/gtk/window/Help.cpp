#include "Kelvadrome/gtk/window/Help.h"

#include "Kelvadrome/model/Commands.h"
#include "KelvadromeKit/attention/DesignWords.h"

#include <fmt/format.h>
#include <glibmm/markup.h>

#include <adwaita.h>
#include <gtkmm/builder.h>
#include <gtkmm/shortcutswindow.h>
#include <string_view>
#include <utility>
#include <vector>

namespace kelvadrome::Help {

namespace {

using Keys = std::vector<std::pair<std::string, std::string>>; // words, and keys as GTK writes them

std::string property(const char* name, const std::string& value) {
    return fmt::format(R"(<property name="{}">{}</property>)", name, Glib::Markup::escape_text(value).raw());
}

std::string group(const char* title, const Keys& keys) {
    std::string text = R"(<child><object class="GtkShortcutsGroup">)" + property("title", title);
    for (const auto& [words, key] : keys) {
        text += R"(<child><object class="GtkShortcutsShortcut">)" + property("title", words) +
                property("accelerator", key) + "</object></child>";
    }
    return text + "</object></child>";
}

std::pair<std::string, std::string> of(const DesignWords::Action& action) {
    return {std::string(action.word), std::string(action.key)};
}

Keys commandKeys(bool sections) {
    Keys keys;
    for (const auto& command : kelvadromeCommands()) {
        if (!command.key.empty() && command.id.starts_with("section-") == sections)
            keys.emplace_back(command.title, command.key);
    }
    return keys;
}

} // namespace

void addShortcuts(Gtk::ApplicationWindow& window) {
    namespace action = DesignWords::action;
    auto general = commandKeys(false);
    for (auto&& more : Keys{{"What Needs You", "<Control>p"}, {"Search", "<Control>f slash"},
             {"Native Inbox", "<Control><Shift>n"}, {"Show Inspector", "<Control><Alt>i"},
             {"Settings", "<Control>comma"}, {"Quit", "<Control>q"}})
        general.push_back(std::move(more));
    const auto text =
        R"(<interface><object class="GtkShortcutsWindow" id="keys"><property name="modal">1</property>)"
        R"(<child><object class="GtkShortcutsSection"><property name="max-height">9</property>)" +
        group("General", general) + group("Go to", commandKeys(true)) +
        group("On a card", {{"Next and previous card", "j k"}, {std::string(action::option.word), "1...9"},
                               of(action::accept), of(action::write), of(action::undo),
                               {"Snooze, wake", std::string(action::snooze.key)}, of(action::dismiss)}) +
        "</object></child></object></interface>";
    const auto built = Gtk::Builder::create_from_string(text);
    auto* const keys = built->get_widget<Gtk::ShortcutsWindow>("keys");
    gtk_application_window_set_help_overlay(window.gobj(), keys->gobj());
}

void showAbout(Gtk::Window& over, const std::string& version) {
    auto* const about = ADW_ABOUT_WINDOW(adw_about_window_new());
    adw_about_window_set_application_name(about, "kelvadrome");
    adw_about_window_set_application_icon(about, "com.kelvadrome.mac");
    adw_about_window_set_version(about, version.c_str());
    adw_about_window_set_comments(about, "One inbox for what your coding agents ask. Answers are typed into "
                                         "the terminal of the agent that asked, "
                                         "or not at all.");
    gtk_window_set_transient_for(GTK_WINDOW(about), over.gobj());
    gtk_window_set_modal(GTK_WINDOW(about), TRUE);
    gtk_window_present(GTK_WINDOW(about));
}

} // namespace kelvadrome::Help
