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

Glib::RefPtr<Gio::Menu> Menu::primary() {
    const auto menu = Gio::Menu::create();
    auto group = Gio::Menu::create();
    const auto setup = Gio::MenuItem::create("Finish Setup", "app.finish-setup");
    setup->set_attribute_value("hidden-when", Glib::Variant<Glib::ustring>::create("action-disabled"));
    group->append_item(setup);
    menu->append_section({}, group);
    group = Gio::Menu::create();
    for (const auto& command : kelvadromeCommands()) {
        group->append(command.title, "app." + command.id);
        if (!command.endsGroup)
            continue;
        menu->append_section({}, group);
        group = Gio::Menu::create();
    }
    menu->append_section({}, group);
    group = Gio::Menu::create();
    group->append("What Needs You", "app.panel");
    group->append("Native Inbox", "app.native-inbox");
    group->append("Show Inspector", "app.inspector");
    group->append("Settings", "app.settings");
    group->append("Quit", "app.quit");
    menu->append_section({}, group);
    return menu;
}

void Menu::show(const AppState& state) {
    for (const auto& [action, checked] : toggles_)
        action->change_state(checked(state));
    finishSetup_->set_enabled(state.onboardingActive);
}

} // namespace kelvadrome
