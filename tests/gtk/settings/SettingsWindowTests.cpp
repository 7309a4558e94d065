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

TEST_F(SettingsWindowStage, aPhoneIsAllowedByTheDigitsTypedWhileItsPaneShows) {
    const auto state = [&](const std::string& now) {
        world.reply("/v1/relay/status",
            R"({"enabled":true,"connector":{"connected":true},"devices":[],"relay_url":"","app_url":"",)"
            R"("pairing":{"id":"p","state":")" +
                now + R"(","expires_at":"2100-01-01T00:00:00Z"}})");
    };
    auto parts = settingsParts(world);
    parts.devices = DevicesSettings::make({.executor = world.loop.executor(),
        .clock = world.clock,
        .client = DaemonClient(UnixSocketTransport(world.socketPath, world.loop.pool())),
        .connector = std::make_shared<RecordingParts>(world.calls),
        .pasteboard = nullptr, // nothing is copied
        .confirm = {}});
    state("joined");
    settings.emplace(SettingsModel::make(std::move(parts)));
    settings->open(SettingsTab::general, nullptr);
    world.loop.drain();
    EXPECT_EQ(world.asked("/v1/relay/status"), 0U) << "nobody looks at it yet";
    settings->open(SettingsTab::iphone, nullptr);
    world.loop.until([&] { return row("6 digits") != nullptr; }, "the field");

    auto* const field = GTK_EDITABLE(adw_action_row_get_activatable_widget(ADW_ACTION_ROW(row("6 digits"))));
    auto* const allow = findWidget(GTK_WIDGET(settings->window().gobj()), [](GtkWidget* widget) {
        return GTK_IS_BUTTON(widget) && g_strcmp0(gtk_button_get_label(GTK_BUTTON(widget)), "Allow") == 0;
    });
    ASSERT_TRUE(allow);
    EXPECT_FALSE(gtk_widget_get_sensitive(allow));
    gtk_editable_set_text(field, "12 34-5678");
    world.loop.until([&] { return gtk_widget_get_sensitive(allow); }, "the button to follow the field");
    EXPECT_STREQ(gtk_editable_get_text(field), "123456");
    g_signal_emit_by_name(allow, "clicked");
    world.loop.until([&] { return world.asked("/v1/relay/pair/decide") == 1; }, "the decision");
    EXPECT_TRUE(world.daemon->requests("/v1/relay/pair/decide").at(0).body.contains(R"("code":"123456")"));
    state("waiting");
    world.turnUntil([&] { return row("6 digits") == nullptr; }, "the pane to follow the daemon", 1.5);

    settings->open(SettingsTab::general, nullptr);
    world.clock->advance(1);
    world.loop.drain();
    if (const auto next = world.clock->untilNext(); next > 0)
        world.clock->advance(next);
    world.idle(); // nothing but the poll waits any more
}

} // namespace
} // namespace kelvadrome::test
