#include "Kelvadrome/model/SettingsRows.h"

#include "Kelvadrome/model/BarKeyRows.h"
#include "Kelvadrome/model/DevicesRows.h"
#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/delivery/TerminalAccessRow.h"
#include "KelvadromeKit/support/Files.h"

#include <fmt/format.h>

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr std::array<std::string_view, allSettingsTabs.size()> tabWords = {
    "general", "agents", "voice", "iphone", "autopilot", "privacy", "about"};
constexpr std::array<std::string_view, allSettingsTabs.size()> tabTitles = {
    "General", "Agents", "Voice", "iPhone", "Rules", "Privacy", "About"};

using Row = SettingsRow;
using Group = SettingsGroup;

Row fact(std::string id, std::string title, std::string detail, std::string value = {}) {
    return {.id = std::move(id),
        .title = std::move(title),
        .detail = std::move(detail),
        .value = std::move(value)};
}

Row toggle(std::string id, std::string title, std::string detail, bool on, bool enabled = true) {
    return {.id = std::move(id),
        .title = std::move(title),
        .detail = std::move(detail),
        .control = Row::Toggle{on},
        .enabled = enabled};
}

Row press(std::string id, std::string title, std::string detail, std::string words, bool enabled = true) {
    return {.id = std::move(id),
        .title = std::move(title),
        .detail = std::move(detail),
        .control = Row::Press{std::move(words)},
        .enabled = enabled};
}

// General

Group look(const AppState& state) {
    const auto worded = std::ranges::find(appearanceWords, state.appearance);
    const auto chosen = worded == appearanceWords.end() ? 0 : worded - appearanceWords.begin();
    Row appearance{.id = SettingsId::appearance,
        .title = "Appearance",
        .control = Row::Choice{{"As the system", "Light", "Dark"}, static_cast<std::size_t>(chosen)}};
    Row mode{.id = SettingsId::interfaceMode,
        .title = "Interface",
        .detail = "In expert mode the page brings its own sidebar and fills the window.",
        .control = Row::Choice{
            {std::string(title(InterfaceMode::simple)), std::string(title(InterfaceMode::expert))},
            state.interfaceMode == InterfaceMode::expert ? 1U : 0U}};
    return {"look", "Look", "", {std::move(appearance), std::move(mode)}};
}

Group onScreen(const AppState& state, const SettingsFacts& facts) {
    const bool obey = facts.place.windowsObey;
    return {"screen", "On the screen", "",
        {toggle(SettingsId::showInDock, "Show in dock and window list",
             obey ? "Without it, kelvadrome is reached through its tray item and its launcher."
                  : "This display's compositor lists every open window, so there is nothing to choose here.",
             facts.showInDock || !obey, obey),
            toggle(SettingsId::agentStrip, "Agent strip",
                obey ? "A small row of lamps above all windows, on every workspace."
                     : "A small row of lamps. This display's compositor places windows by itself, so the "
                       "strip "
                       "can't stay above others or on every workspace.",
                state.agentStripShown)}};
}

Group background(const AppState& state, const SettingsFacts& facts) {
    Group group{"background", "In the background", "", {}};
    constexpr const char* name = "Keep working when the window is closed";
    if (!facts.place.loginItem) {
        group.rows.push_back(toggle(SettingsId::loginItem, name,
            facts.place.ownHome ? "This run has a data home of its own and leaves the login item alone."
                                : "Not available in this build. The daemon runs while the app is open.",
            false, false));
        return group;
    }
    const auto& login = state.backgroundState;
    group.rows.push_back(toggle(SettingsId::loginItem, name,
        state.backgroundChanging ? "One moment."
        : login                  ? login->line()
                                 : "Not known yet",
        // What is so, whoever switched it; while it changes, what the user has just asked for.
        state.backgroundChanging.value_or(loginItemIsEnabled(state) || (login && login->needsApproval())),
        login && !state.backgroundChanging && login->status != BackgroundServiceStatus::notFound));
    if (login && login->status == BackgroundServiceStatus::requiresApproval) {
        group.rows.push_back(press(SettingsId::allowLoginItem, "Allow it",
            "The background service is masked. This command in a terminal allows it: " +
                facts.place.allowLoginItem,
            "Copy Command"));
    }
    if (login && login->migratedTo)
        group.rows.push_back(fact("migrated", "The old background agent was moved", *login->migratedTo));
    return group;
}

Group notifications(const AppState& state, const SettingsFacts& facts) {
    std::string detail = "One notification that names no topic, amount or person.";
    if (!facts.place.mayNotify) {
        detail = "Off for this run.";
    } else if (state.notificationsAllowed == false) {
        detail = "The desktop shows none: its notification service refused, or doesn't answer. The panel and "
                 "the badge still count.";
    }
    return {"notifications", "Notifications", "",
        {toggle(SettingsId::notifyStops, "Tell me about new high-risk stops", std::move(detail),
            facts.notifyStops && facts.place.mayNotify, facts.place.mayNotify)}};
}

std::vector<Group> general(const AppState& state, const SettingsFacts& facts) {
    std::vector<Group> groups{look(state), onScreen(state, facts)};
    if (facts.barKey)
        groups.push_back(barKeyRows(*facts.barKey, facts.place));
    groups.push_back(background(state, facts));
    groups.push_back(notifications(state, facts));
    return groups;
}

// Agents

Row terminalRow(TerminalApp app, const SettingsFacts::Terminal& terminal) {
    auto content =
        TerminalAccessRow::content(app, terminal.status, terminal.running, terminal.asking, terminal.note);
    Row row{.id = SettingsId::terminal(app),
        .title = allowTitle(app),
        .detail = content.note.value_or(allowDetail(app)),
        .value = std::move(content.text)};
    if (!content.button.empty()) {
        row.control = Row::Press{std::move(content.button)};
        row.enabled = content.press != TerminalAccessRow::Content::Press::nothing;
    }
    return row;
}

Group terminals(const SettingsFacts& facts) {
    Group group{"terminals", "Terminals",
        facts.place.scriptsTerminals ? "The system asks before one app may type into another."
                                     : "On this system answers reach agents in tmux panes.",
        {}};
    group.rows.push_back(fact("tmux", "tmux",
        facts.place.tmux ? "Needs no permission. The pane is looked at again before every key."
                         : "Install tmux to have answers typed for you.",
        facts.place.tmux ? "Ready" : "Not installed"));
    if (!facts.place.scriptsTerminals)
        return group;
    for (const auto app : allTerminalApps) {
        const auto found = facts.terminals.find(app);
        group.rows.push_back(
            terminalRow(app, found == facts.terminals.end() ? SettingsFacts::Terminal{} : found->second));
    }
    return group;
}

Group crew(const SettingsFacts& facts) {
    Group group{"crew", facts.place.scriptsTerminals ? "Crew labels" : "Callsigns",
        facts.place.scriptsTerminals
            ? "The daemon gives each agent a callsign, and keeps the switch. While it is on, kelvadrome "
              "writes the "
              "callsign onto the agent's iTerm2 tab."
            : "The daemon gives each agent a callsign, by which those of one name are told apart.",
        {}};
    if (!facts.crew) {
        group.rows.push_back(fact("crew-labels", group.title, "", "Not known yet"));
        return group;
    }
    if (facts.place.scriptsTerminals) {
        group.rows.push_back(fact(
            "crew-labels", "Callsigns on tabs", "", facts.crew->crewLabels.value_or(true) ? "On" : "Off"));
    }
    for (const auto& row : facts.crew->sessions) {
        if (row.status == "ended" || !row.callsign)
            continue;
        const auto where = row.tty ? row.host + ", " + *row.tty : row.host;
        group.rows.push_back(fact("crew-" + row.key, *row.callsign, where, row.status));
    }
    return group;
}

// Rules

Group answeredByRules(const AppState& state) {
    const auto answered = state.counts ? std::to_string(state.counts->answeredByRulesToday) : "Not reported";
    return {"rules", "Your rules",
        "The daemon keeps them and answers by them. They can't be made or changed here yet.",
        {fact("answered", "Answered by your rules today", "", answered),
            press(SettingsId::editRules, "Rules and autopilot", "", "Open the Page",
                state.connection.state == Connection::State::ready)}};
}

Group autopilot(const AppState& state) {
    Group group{"autopilot", "Autopilot", "", {}};
    if (!state.agents) {
        group.rows.push_back(fact("none", "Not reported", "The daemon doesn't tell."));
        return group;
    }
    std::size_t number = 0;
    for (const auto& pilot : state.agents->autopilot) {
        auto detail = pilot.scope == "*" ? "Everywhere" : "In " + pilot.scope;
        if (pilot.mode)
            detail += ", " + *pilot.mode;
        if (pilot.floor)
            detail += ", a floor";
        group.rows.push_back(fact(fmt::format("pilot-{}", number++),
            pilot.label.value_or(InboxLogic::actionLabel(pilot.actionClass)), detail,
            std::string(rawValue(InboxLogic::annunciator(pilot.level)))));
    }
    if (group.rows.empty())
        group.rows.push_back(fact("none", "Nothing runs by itself", "The daemon reports no autopilot."));
    return group;
}

// Privacy

Group places(const AppState& state, const SettingsFacts& facts) {
    const auto& place = facts.place;
    return {"places", "On this machine", "",
        {press(SettingsId::revealHome, "Data home", place.dataHome, "Show in Files"),
            fact("settings-file", "Settings of this app", place.settingsFile),
            fact("secret", "Key to the page",
                facts.secretPlace.value_or("Not known yet.") +
                    fmt::format(" {0} page-key tells which program holds the page; {0} page-key --reset "
                                "forgets a key that was lost.",
                        kdCommand(state))),
            fact("session", "Session of the page",
                "In memory only, and gone when kelvadrome quits" +
                    (state.credentialsExpiry ? ". Open on 127.0.0.1, " + *state.credentialsExpiry + "."
                                             : std::string("."))),
            fact("log", "Log of the daemon, when the login item runs it",
                place.daemonLog.empty() ? "None: its files are missing" : place.daemonLog)}};
}

Group leaving(const SettingsFacts& facts) {
    return {"leaving", "What leaves this machine",
        "This app opens no connection to another machine. It sends no telemetry and no crash reports, and "
        "doesn't look for updates.",
        {fact("to-daemon", "To the daemon",
             "Over " + facts.place.socket +
                 " and over 127.0.0.1 for its page. Both end on this machine. What the "
                 "daemon does with the network is the daemon's own."),
            fact("to-agents", "To your agents",
                "The answer you press is typed into the agent's terminal, or given to Codex for its own "
                "queue. "
                "The agent may send it to its vendor."),
            fact("to-phone", "To your phone",
                "Only while answering from your iPhone is on: the relay connector sends cards to the relay "
                "that "
                "you set up, end-to-end encrypted."),
            fact("to-browser", "To your browser", "The address of a link, when you press one."),
            fact("to-desktop", "To your desktop",
                "Over the session bus: how many cards need you, notifications that name no topic, amount or "
                "person, and the key to the page, for the keyring.")}};
}

// About

Group version(const AppState& state, const SettingsFacts& facts) {
    const auto& place = facts.place;
    const bool packaged =
        place.executable.starts_with("/usr/") && !place.executable.starts_with("/usr/local/");
    Group group{"version", "", "",
        {fact("version", "Version",
            packaged ? "Installed by your system's package manager" : "Built from its sources",
            place.version)}};
    if (state.health)
        group.rows.push_back(fact("daemon", "Daemon", state.health->name, state.health->version));
    group.rows.push_back(fact("program", "Program", place.executable));
    group.rows.push_back(fact("updates", "Updates",
        packaged ? "Come with your system's updates. kelvadrome doesn't look for any itself."
                 : "Build it again from newer sources. kelvadrome doesn't look for any itself."));
    return group;
}

Group libraries() {
    static constexpr std::array<std::pair<const char*, const char*>, 17> known = {{
        {"Boost (Asio, JSON, URL)", "Boost Software License 1.0"},
        {"curl", "curl licence"},
        {"{fmt}", "MIT"},
        {"GLib, GIO", "LGPL 2.1 or later"},
        {"GTK, gtkmm", "LGPL 2.1 or later"},
        {"libadwaita", "LGPL 2.1 or later"},
        {"libplist", "LGPL 2.1 or later"},
        {"libqrencode", "LGPL 2.1 or later"},
        {"libsecret", "LGPL 2.1 or later"},
        {"libsodium", "ISC"},
        {"libxcb, xcb-util-wm", "MIT/X11"},
        {"ncurses", "MIT/X11"},
        {"Node.js, for the daemon", "MIT"},
        {"RE2", "BSD, 3 clauses"},
        {"simdjson", "Apache 2.0"},
        {"utf8proc", "MIT, Unicode data licence"},
        {"WebKitGTK", "LGPL 2 or later, BSD, 2 clauses"},
    }};
    Row row = fact("libraries", "Libraries", "What kelvadrome is built on, each under its own licence");
    for (const auto& [name, licence] : known)
        row.folded.push_back(fact(std::string("library-") + name, name, licence));
    return {"libraries", "", "", {std::move(row)}};
}

} // namespace

std::string_view rawValue(SettingsTab tab) {
    return tabWords.at(static_cast<std::size_t>(tab));
}

std::optional<SettingsTab> settingsTabFromRawValue(std::string_view text) {
    for (const auto tab : allSettingsTabs) {
        if (rawValue(tab) == text)
            return tab;
    }
    return std::nullopt;
}

std::string_view title(SettingsTab tab) {
    return tabTitles.at(static_cast<std::size_t>(tab));
}

std::string SettingsId::terminal(TerminalApp app) {
    return "terminal-" + std::string(rawValue(app));
}

std::vector<SettingsGroup> settingsPane(SettingsTab tab, const AppState& state, const SettingsFacts& facts) {
    switch (tab) {
    case SettingsTab::general:
        return general(state, facts);
    case SettingsTab::agents:
        return {terminals(facts), crew(facts)};
    case SettingsTab::voice:
        break;
    case SettingsTab::iphone:
        return devicesPane(facts.devices);
    case SettingsTab::autopilot:
        return {answeredByRules(state), autopilot(state)};
    case SettingsTab::privacy:
        return {places(state, facts), leaving(facts)};
    case SettingsTab::about:
        return {version(state, facts), libraries()};
    }
    return {};
}

} // namespace kelvadrome
