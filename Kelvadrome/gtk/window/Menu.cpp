#include "Kelvadrome/gtk/window/Menu.h"

#include <giomm/simpleaction.h>

namespace kelvadrome {

Menu::Menu(Gtk::Application& application, std::shared_ptr<AppModel> model) {
    for (auto& command : kelvadromeCommands()) {
        const auto run = [model, act = command.run] { act(*model); };
        auto action = command.checked
                          ? Gio::SimpleAction::create_bool(command.id, command.checked(model->state()))
                          : Gio::SimpleAction::create(command.id);
        action->signal_activate().connect([run](const Glib::VariantBase&) { run(); });
        application.add_action(action);
        if (!command.key.empty())
            application.set_accel_for_action("app." + command.id, command.key);
        if (command.checked)
            toggles_.push_back({action, command.checked});
    }
    const auto inspector = Gio::SimpleAction::create_bool("inspector", model->state().inspectorShown);
    inspector->signal_activate().connect(
        [model](const Glib::VariantBase&) { model->setInspectorShown(!model->state().inspectorShown); });
    application.add_action(inspector);
    application.set_accel_for_action("app.inspector", "<Control><Alt>i");
    toggles_.push_back({inspector, [](const AppState& state) { return state.inspectorShown; }});
    const auto native = Gio::SimpleAction::create_bool("native-inbox", model->state().nativeInbox);
    native->signal_activate().connect(
        [model](const Glib::VariantBase&) { model->setNativeInbox(!model->state().nativeInbox); });
    application.add_action(native);
    application.set_accel_for_action("app.native-inbox", "<Control><Shift>n");
    toggles_.push_back({native, [](const AppState& state) { return state.nativeInbox; }});
    finishSetup_ = application.add_action("finish-setup", [model] { model->openOnboarding(false); });
    finishSetup_->set_enabled(model->state().onboardingActive);
}

namespace {

/// The part of the one menu that changes.
const Glib::RefPtr<Gio::Menu>& setupGroup() {
    static const auto group = Gio::Menu::create();
    return group;
}

} // namespace

Glib::RefPtr<Gio::Menu> Menu::primary() {
    const auto menu = Gio::Menu::create();
    menu->append_section({}, setupGroup());
    auto group = Gio::Menu::create();
    const auto sections = Gio::Menu::create();
    for (const auto& command : kelvadromeCommands()) {
        (command.id.starts_with("section-") ? sections : group)->append(command.title, "app." + command.id);
        if (!command.endsGroup)
            continue;
        menu->append_section({}, group);
        group = Gio::Menu::create();
    }
    group->append_submenu("Go to", sections);
    menu->append_section({}, group);
    group = Gio::Menu::create();
    group->append("What Needs You", "app.panel");
    group->append("Native Inbox", "app.native-inbox");
    group->append("Show Inspector", "app.inspector");
    menu->append_section({}, group);
    group = Gio::Menu::create();
    group->append("Settings", "app.settings");
    group->append("Keyboard Shortcuts", "win.show-help-overlay");
    group->append("About kelvadrome", "app.about");
    group->append("Quit", "app.quit");
    menu->append_section({}, group);
    return menu;
}

void Menu::show(const AppState& state) {
    for (const auto& [action, checked] : toggles_)
        action->change_state(checked(state));
    finishSetup_->set_enabled(state.onboardingActive);
    // In place of "hidden-when": GTK 4.8 leaves such an item away in a window that was hidden meanwhile.
    if (const bool stands = setupGroup()->get_n_items() > 0; stands == state.onboardingActive)
        return;
    if (state.onboardingActive) {
        setupGroup()->append("Finish Setup", "app.finish-setup");
    } else {
        setupGroup()->remove_all();
    }
}

} // namespace kelvadrome
