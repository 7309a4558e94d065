#include "Kelvadrome/model/SettingsModel.h"

#include "tests/daemon/LoginItem.h"
#include "tests/model/SettingsParts.h"

namespace kelvadrome::test {
namespace {

using Status = BackgroundServiceStatus;

/// A row of a pane; a failure when there is none.
SettingsRow rowOf(const std::vector<SettingsGroup>& groups, const std::string& id) {
    for (const auto& group : groups) {
        for (const auto& row : group.rows) {
            if (row.id == id)
                return row;
        }
    }
    ADD_FAILURE() << "no row " << id;
    return {};
}

bool hasRow(const std::vector<SettingsGroup>& groups, const std::string& id) {
    return std::ranges::any_of(groups, [&](const SettingsGroup& group) {
        return std::ranges::find(group.rows, id, &SettingsRow::id) != group.rows.end();
    });
}

bool isOn(const SettingsRow& row) {
    return std::get<SettingsRow::Toggle>(row.control).on;
}

std::string wordsOn(const SettingsRow& row) {
    const auto* const press = std::get_if<SettingsRow::Press>(&row.control);
    return press ? press->words : "";
}

TEST(SettingsRows, theLoginItemSaysHowItStandsAndHowAMaskIsLifted) {
    AppState state;
    SettingsFacts facts;
    facts.place.allowLoginItem = "unmask it";
    const auto login = [&] {
        return rowOf(settingsPane(SettingsTab::general, state, facts), SettingsId::loginItem);
    };
    EXPECT_FALSE(login().enabled) << "before the system has told";
    state.backgroundState = BackgroundService::State{.status = Status::enabled, .wanted = true};
    EXPECT_TRUE(isOn(login()) && login().enabled);
    EXPECT_EQ(login().detail, state.backgroundState->line());
    EXPECT_FALSE(hasRow(settingsPane(SettingsTab::general, state, facts), SettingsId::allowLoginItem));

    state.backgroundChanging = true;
    EXPECT_FALSE(login().enabled) << "one change at a time";
    state.backgroundChanging = false;
    state.backgroundState->status = Status::requiresApproval;
    EXPECT_TRUE(rowOf(settingsPane(SettingsTab::general, state, facts), SettingsId::allowLoginItem)
                    .detail.ends_with("unmask it"));
    state.backgroundState->error = "macOS refused";
    EXPECT_EQ(login().detail, "macOS refused");

    facts.place.loginItem = false;
    facts.place.ownHome = true;
    EXPECT_FALSE(login().enabled);
    EXPECT_TRUE(login().detail.contains("data home of its own"));
}

TEST(SettingsRows, whatTheDisplayOrTheRunDoesNotAllowIsSaidAndCannotBePressed) {
    AppState state;
    SettingsFacts facts;
    facts.showInDock = false;
    const auto row = [&](const char* id) {
        return rowOf(settingsPane(SettingsTab::general, state, facts), id);
    };
    EXPECT_TRUE(row(SettingsId::showInDock).enabled);
    EXPECT_FALSE(isOn(row(SettingsId::showInDock)));
    facts.place.windowsObey = false;
    EXPECT_FALSE(row(SettingsId::showInDock).enabled);
    EXPECT_TRUE(row(SettingsId::agentStrip).enabled) << "it shows all the same";
    EXPECT_TRUE(row(SettingsId::agentStrip).detail.contains("can't stay above"));

    state.notificationsAllowed = true;
    const auto allowed = row(SettingsId::notifyStops).detail;
    state.notificationsAllowed = false;
    EXPECT_NE(row(SettingsId::notifyStops).detail, allowed);
    EXPECT_TRUE(row(SettingsId::notifyStops).enabled) << "the wish is kept for a server that comes";
    facts.place.mayNotify = false;
    EXPECT_FALSE(row(SettingsId::notifyStops).enabled || isOn(row(SettingsId::notifyStops)));
}

TEST(SettingsRows, agentsAndRulesShowWhatTheDaemonReportsAndNoMore) {
    AppState state;
    SettingsFacts facts;
    const auto agents = [&] { return settingsPane(SettingsTab::agents, state, facts); };
    const auto rules = [&] { return settingsPane(SettingsTab::autopilot, state, facts); };
    EXPECT_EQ(rowOf(agents(), "crew-labels").value, "Not known yet");
    EXPECT_EQ(rowOf(rules(), "answered").value, "Not reported");
    EXPECT_EQ(rowOf(rules(), "none").title, "Not reported");
    EXPECT_FALSE(rowOf(rules(), SettingsId::editRules).enabled) << "there is no page yet";

    facts.crew = CrewLabelList{{{"a", "iterm2", "ttys001", "Ada", "busy"}, {"b", "tmux", {}, "Bo", "idle"},
                                   {"c", "tmux", {}, "Cy", "ended"}, {"d", "tmux", {}, {}, "idle"}},
        false};
    EXPECT_EQ(rowOf(agents(), "crew-labels").value, "Off");
    EXPECT_EQ(rowOf(agents(), "crew-a").detail, "iterm2, ttys001");
    EXPECT_EQ(rowOf(agents(), "crew-b").title, "Bo");
    EXPECT_FALSE(hasRow(agents(), "crew-c") || hasRow(agents(), "crew-d"));

    state.connection = Connection::ready();
    state.counts = InboxCounts{.needsYou = 0, .answeredByRulesToday = 4};
    state.agents.emplace().autopilot = {{"*", "git_push", "L1", std::nullopt, std::nullopt, false},
        {"family", "x", "L2", "Mail", std::nullopt, true}};
    EXPECT_EQ(rowOf(rules(), "answered").value, "4");
    EXPECT_TRUE(rowOf(rules(), SettingsId::editRules).enabled);
    EXPECT_EQ(rowOf(rules(), "pilot-0").title, "Git push");
    EXPECT_EQ(rowOf(rules(), "pilot-0").value, "AUTO");
    EXPECT_EQ(rowOf(rules(), "pilot-1").detail, "In family, a floor");
}

TEST(SettingsRows, noTwoRowsOfAPaneShareAnIdAndTheTabsHaveTheirWords) {
    AppState state;
    const SettingsFacts facts;
    for (const auto tab : allSettingsTabs) {
        std::set<std::string> seen;
        for (const auto& group : settingsPane(tab, state, facts)) {
            for (const auto& row : group.rows)
                EXPECT_TRUE(seen.insert(row.id).second) << row.id;
        }
        EXPECT_EQ(settingsTabFromRawValue(rawValue(tab)), tab);
    }
    EXPECT_EQ(settingsTabFromRawValue("autopilot"), SettingsTab::autopilot);
    for (const auto* word : {"", "General", "rules", "voice"})
        EXPECT_EQ(settingsTabFromRawValue(word), std::nullopt) << word;
}

/// Settings over a model, on defaults that outlive both.
class Settings : public testing::Test {
protected:
    SettingsModel& open() {
        world.make();
        auto parts = settingsParts(world);
        parts.apps = std::make_shared<OneApp>("com.apple.Terminal");
        parts.place = {.dataHome = "/h", .allowLoginItem = "unmask it"};
        parts.secretPlace = [] { return std::string("in a drawer"); };
        parts.showInDock = [this](bool shown) { dock.push_back(shown); };
        settings = SettingsModel::make(std::move(parts));
        return *settings;
    }
    SettingsRow row(SettingsTab tab, const std::string& id) { return rowOf(settings->pane(tab), id); }
    SettingsRow general(const std::string& id) { return row(SettingsTab::general, id); }
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
    EXPECT_EQ(world.web->theme, "dark");
    EXPECT_TRUE(world.web->calls.last("runScript").contains("setTheme(\"dark\")"));
    model.choose(SettingsId::appearance, 9);
    model.choose(SettingsId::interfaceMode, 1);
    EXPECT_EQ(world.state().interfaceMode, InterfaceMode::expert);
    model.toggle(SettingsId::agentStrip, true);
    EXPECT_EQ(world.screen->calls.countOf("updateAgentStrip"), 1U);
    model.toggle(SettingsId::showInDock, false);
    EXPECT_EQ(dock, std::vector<bool>{false});
    model.toggle(SettingsId::notifyStops, false);
    model.toggle("something else", true);

    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(chosen(SettingsId::appearance), 2U);
        EXPECT_EQ(chosen(SettingsId::interfaceMode), 1U);
        EXPECT_TRUE(isOn(general(SettingsId::agentStrip)));
        EXPECT_FALSE(isOn(general(SettingsId::showInDock)));
        EXPECT_FALSE(isOn(general(SettingsId::notifyStops)));
        restart();
    }
    settings->choose(SettingsId::appearance, 0);
    restart();
    EXPECT_EQ(chosen(SettingsId::appearance), 0U);
    EXPECT_EQ(world.state().appearance, "system");
}

TEST_F(Settings, whatOthersChangeIsReadWhenTheWindowComesUp) {
    LoginItem item;
    world.background = item.background;
    world.probe.check = [](const std::string&) { return ConsentCode(); };
    open();
    world.page->replies["/v1/sessions/live"] =
        FakePage::data(R"({"sessions":[{"key":"a","host":"tmux","callsign":"Ada","status":"busy"}]})");
    int told = 0;
    const auto watching = settings->observe([&] { ++told; });
    item.service->now = Status::requiresApproval;
    settings->lookAgain();
    world.loop.until(
        [&] {
            return row(SettingsTab::privacy, "secret").detail == "in a drawer" &&
                   hasRow(settings->pane(SettingsTab::agents), "crew-a") &&
                   hasRow(settings->pane(SettingsTab::general), SettingsId::allowLoginItem) &&
                   row(SettingsTab::agents, "terminal-terminal").value == "Not known yet" && told > 0;
        },
        "all to be read");
    EXPECT_EQ(row(SettingsTab::agents, "terminal-iterm2").value, "Open iTerm2 first");

    std::string notice;
    settings->onNotice = [&](std::string words) { notice = std::move(words); };
    settings->press(SettingsId::allowLoginItem);
    EXPECT_TRUE(world.screen->calls.has("copyText unmask it"));
    EXPECT_FALSE(notice.empty());
    settings->press(SettingsId::revealHome);
    EXPECT_TRUE(world.screen->calls.has("revealFile /h"));
    settings->press(SettingsId::editRules);
    EXPECT_TRUE(world.screen->calls.has("openMainWindow"));
    EXPECT_TRUE(world.web->calls.has("navigate /autopilot all -"));
}

TEST_F(Settings, aTerminalIsAskedForOnceAndItsAnswerShows) {
    ConsentCode code = consentNotAsked;
    bool locked = true;
    std::optional<Completion<ConsentCode>> question;
    const auto ask = [&](std::string) -> Task<ConsentCode> {
        const auto begin = [&](Completion<ConsentCode> finish) { question = std::move(finish); };
        return suspendUntil<ConsentCode>(begin);
    };
    world.probe = {
        .check = [&](std::string) { return code; }, .request = ask, .screenLocked = [&] { return locked; }};
    open().lookAgain();
    const std::string id = SettingsId::terminal(TerminalApp::terminal);
    const auto shown = [&] { return row(SettingsTab::agents, id); };
    world.loop.until([&] { return wordsOn(shown()) == "Allow"; }, "the consent to be read");

    settings->press(id);
    EXPECT_EQ(wordsOn(shown()), "Waiting for your answer");
    EXPECT_FALSE(shown().enabled);
    world.loop.until([&] { return shown().detail.starts_with("Unlock the Mac first"); }, "the refusal");

    locked = false;
    settings->press(id);
    settings->press(id);
    world.loop.until([&] { return question.has_value(); }, "the question");
    code = consentDenied;
    (*question)(consentDenied);
    world.loop.until([&] { return wordsOn(shown()) == "Open System Settings"; }, "the answer");
    settings->press(id);
    EXPECT_TRUE(world.screen->calls.last("openURL").ends_with("Privacy_Automation"));
}

} // namespace
} // namespace kelvadrome::test
