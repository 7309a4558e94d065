#include "Kelvadrome/gtk/settings/SettingsWindow.h"

#include "tests/daemon/LoginItem.h"
#include "tests/model/World.h"
#include "tests/support/HeadlessDisplay.h"

#include <cstdio>
#include <cstdlib>
#include <gtkmm/init.h>

namespace kelvadrome::test {
namespace {

/// The row with this title, anywhere below a widget.
AdwPreferencesRow* rowTitled(GtkWidget* below, const std::string& title) {
    if (ADW_IS_PREFERENCES_ROW(below) && adw_preferences_row_get_title(ADW_PREFERENCES_ROW(below)) == title)
        return ADW_PREFERENCES_ROW(below);
    for (auto* child = gtk_widget_get_first_child(below); child; child = gtk_widget_get_next_sibling(child)) {
        if (auto* const found = rowTitled(child, title))
            return found;
    }
    return nullptr;
}

/// The window over a model, on an X server without a screen.
class SettingsWindowStage : public testing::Test {
protected:
    class NoApps final : public RunningApps {
    public:
        bool isRunning(const std::string&) override { return false; }
        void activate(const std::string&) override {}
    };

    void SetUp() override {
        static HeadlessDisplay display;
        if (!display.problem().empty()) {
            std::fprintf(stderr, "SKIPPED, NOTHING TESTED: %s\n", display.problem().c_str());
            GTEST_SKIP() << display.problem();
        }
        static const bool ready = [] {
            setenv("GSETTINGS_BACKEND", "memory", 1);
            setenv("GTK_A11Y", "none", 1);
            adw_init();
            Gtk::init_gtkmm_internals();
            return true;
        }();
        ASSERT_TRUE(ready);
        world.background = item.background;
        world.probe.check = [](const std::string&) { return ConsentCode(); };
        world.start();
        settings.emplace(SettingsModel::make({.executor = world.loop.executor(),
            .pool = &world.loop.pool(),
            .model = world.model,
            .defaults = world.defaults,
            .automation = std::make_shared<AutomationPrompter>(
                world.loop.executor(), world.probe, std::make_shared<MemoryFlags>()),
            .session = std::make_shared<PageSession>(world.loop.executor(), world.page, FakePage::mint),
            .apps = std::make_shared<NoApps>(),
            .place = {},
            .secretPlace = [] { return std::string(); },
            .showInDock = [](bool) {}}));
        settings->open(SettingsTab::general, nullptr);
    }

    AdwPreferencesRow* row(const std::string& title) {
        return rowTitled(GTK_WIDGET(settings->window().gobj()), title);
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
