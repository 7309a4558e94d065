#include "Kelvadrome/model/SettingsModel.h"

#include "tests/daemon/LoginItem.h"
#include "tests/model/SettingsParts.h"

namespace kelvadrome::test {
namespace {

bool isOn(const SettingsRow& row) {
    return std::get<SettingsRow::Toggle>(row.control).on;
}

/// Settings over a model, on defaults that outlive both.
class Settings : public testing::Test {
protected:
    SettingsModel& open() {
        world.make();
        auto parts = settingsParts(world);
        parts.showInDock = [this](bool shown) { dock.push_back(shown); };
        settings = SettingsModel::make(std::move(parts));
        return *settings;
    }
    SettingsRow general(const std::string& id) {
        for (const auto& group : settings->pane(SettingsTab::general)) {
            const auto row = std::ranges::find(group.rows, id, &SettingsRow::id);
            if (row != group.rows.end())
                return *row;
        }
        throw std::runtime_error("no row " + id);
    }
    std::size_t chosen(const char* id) { return std::get<SettingsRow::Choice>(general(id).control).chosen; }
    /// Another start of the application.
    void restart() {
        settings.reset();
        world.flags = DebugFlags::read(*world.defaults);
        open();
    }

    World world;
    std::vector<bool> dock;
    std::shared_ptr<SettingsModel> settings;
};

TEST_F(Settings, eachChangeTakesEffectAtOnceAndHoldsAfterARestart) {
    auto& model = open();
    model.choose(SettingsId::appearance, 2);
    EXPECT_EQ(world.screen->calls.last("setAppearance"), "setAppearance dark");
    EXPECT_TRUE(world.web->calls.last("runScript").contains("setTheme(\"dark\")"));
    model.choose(SettingsId::interfaceMode, 1);
    model.toggle(SettingsId::agentStrip, true);
    EXPECT_EQ(world.screen->calls.countOf("updateAgentStrip"), 1U);
    model.toggle(SettingsId::showInDock, false);
    EXPECT_EQ(dock, std::vector<bool>{false});
    model.toggle(SettingsId::notifyStops, false);

    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(chosen(SettingsId::appearance), 2U);
        EXPECT_EQ(chosen(SettingsId::interfaceMode), 1U);
        EXPECT_TRUE(isOn(general(SettingsId::agentStrip)));
        EXPECT_FALSE(isOn(general(SettingsId::showInDock)));
        EXPECT_FALSE(isOn(general(SettingsId::notifyStops)));
        restart();
    }
}

TEST(SettingsRows, theBarsKeyTellsHowItStands) {
    SettingsFacts facts{.place = {.dataHome = "/k d", .executable = "/opt/my apps/kelvadrome"}};
    const auto rows = [&] { return settingsPane(SettingsTab::general, AppState(), facts)[2].rows; };
    EXPECT_NE(rows()[0].id, SettingsId::barKey) << "there is no bar";
    const std::vector<std::pair<BarKeyState, std::string>> table = {
        {{"F5", HotkeyOutcome::taken()}, "Taken by another app"},
        {{"F5", HotkeyOutcome::failed(9)}, "The system refused it (9). Bind the command below instead."},
        {{"F5", HotkeyOutcome::failed(HotkeyStatus::noPortal)},
            "Your desktop gives no program a key of its own. Bind the command below instead."}};
    for (const auto& [state, words] : table) {
        facts.barKey = state;
        EXPECT_EQ(rows()[0].detail, words);
        EXPECT_EQ(rows()[0].value, "F5");
    }
    EXPECT_TRUE(rows()[1].detail.ends_with(": '/opt/my apps/kelvadrome' --bar"));
    facts.place.ownHome = true;
    EXPECT_TRUE(rows()[1].detail.ends_with(": '/opt/my apps/kelvadrome' -KDHome '/k d' --bar"));
}

TEST_F(Settings, theLoginItemsSwitchShowsWhatIsSoWhoeverSwitchedIt) {
    LoginItem item;
    world.background = item.background;
    auto& model = open();
    world.start();
    const auto becomes = [&](bool on, const std::string& words) {
        const auto shows = [&] {
            const auto row = general(SettingsId::loginItem);
            return row.enabled && isOn(row) == on && row.detail.contains(words);
        };
        world.loop.until(shows, "the switch to show \"" + words + "\"");
    };
    model.toggle(SettingsId::loginItem, true);
    EXPECT_TRUE(isOn(general(SettingsId::loginItem))) << "at once";
    becomes(true, "On.");
    item.service->now = BackgroundServiceStatus::notRegistered; // by another program
    model.lookAgain();
    becomes(false, "Off.");
    item.service->refusal = "no room";
    model.toggle(SettingsId::loginItem, true);
    becomes(false, "(no room)");
}

} // namespace
} // namespace kelvadrome::test
