#include "Kelvadrome/gtk/settings/SettingsWindow.h"

#include "tests/daemon/LoginItem.h"
#include "tests/gtk/OnADisplay.h"
#include "tests/model/SettingsParts.h"

namespace kelvadrome::test {
namespace {

/// The window over a model.
class SettingsWindowStage : public OnADisplay {
protected:
    void SetUp() override {
        OnADisplay::SetUp();
        if (IsSkipped())
            return;
        world.background = item.background;
        world.probe.check = [](const std::string&) { return ConsentCode(); };
        world.start();
        settings.emplace(SettingsModel::make(settingsParts(world)));
        settings->open(SettingsTab::general, nullptr);
    }

    AdwPreferencesRow* row(const std::string& title) {
        const auto hasTitle = [&](GtkWidget* widget) {
            return ADW_IS_PREFERENCES_ROW(widget) &&
                   adw_preferences_row_get_title(ADW_PREFERENCES_ROW(widget)) == title;
        };
        auto* const found = findWidget(GTK_WIDGET(settings->window().gobj()), hasTitle);
        return found ? ADW_PREFERENCES_ROW(found) : nullptr;
    }
    GtkSwitch* switchOf(const std::string& title) {
        auto* const found = row(title);
        return found ? GTK_SWITCH(adw_action_row_get_activatable_widget(ADW_ACTION_ROW(found))) : nullptr;
    }

    LoginItem item;
    World world;
    std::optional<SettingsWindow> settings;
};

TEST_F(SettingsWindowStage, aPressReachesTheModelAndWhatTheModelTellsIsNoPress) {
    auto* const strip = switchOf("Agent strip");
    ASSERT_TRUE(strip);
    gtk_switch_set_active(strip, TRUE);
    EXPECT_TRUE(world.state().agentStripShown);

    world.model->setAgentStrip(false); // from the menu
    const auto calls = world.screen->calls.countOf("updateAgentStrip");
    world.loop.until([&] { return !gtk_switch_get_active(strip); }, "the switch to follow");
    EXPECT_EQ(world.screen->calls.countOf("updateAgentStrip"), calls);

    auto* const look = ADW_COMBO_ROW(row("Appearance"));
    adw_combo_row_set_selected(look, 2);
    EXPECT_EQ(world.state().appearance, "dark");
    world.model->setAppearance("light");
    world.loop.until([&] { return adw_combo_row_get_selected(look) == 1; }, "the choice to follow");
    EXPECT_EQ(world.state().appearance, "light");
}

TEST_F(SettingsWindowStage, aRowThatComesOrGoesLeavesTheOthersTheirWidgets) {
    auto* const login = switchOf("Keep working when the window is closed");
    ASSERT_TRUE(login);
    ASSERT_FALSE(row("Allow it"));
    const auto becomes = [&](BackgroundServiceStatus status, bool asks) {
        item.service->now = status;
        world.model->refreshBackground();
        world.loop.until([&] { return (row("Allow it") != nullptr) == asks; }, "the row");
        EXPECT_EQ(switchOf("Keep working when the window is closed"), login);
    };
    becomes(BackgroundServiceStatus::requiresApproval, true);
    becomes(BackgroundServiceStatus::enabled, false);
}

} // namespace
} // namespace kelvadrome::test
