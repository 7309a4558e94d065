#include "Kelvadrome/model/SettingsModel.h"

#include "Kelvadrome/model/AppLifecycle.h"
#include "Kelvadrome/model/BarKeyRows.h"
#include "KelvadromeKit/delivery/TerminalAccessRow.h"

namespace kelvadrome {

std::shared_ptr<SettingsModel> SettingsModel::make(Dependencies dependencies) {
    struct Model final : SettingsModel {
        explicit Model(Dependencies d) : SettingsModel(std::move(d)) {}
    };
    return std::make_shared<Model>(std::move(dependencies));
}

SettingsModel::SettingsModel(Dependencies dependencies)
    : parts_(std::move(dependencies)), changes_(parts_.executor), tasks_(parts_.executor) {
    facts_.place = parts_.place;
    facts_.showInDock = AppLifecycle::showsInDock(*parts_.defaults);
    facts_.notifyStops = parts_.defaults->storedBoolean("KDNotifyStops").value_or(true);
    watching_ = parts_.model->observe([this] { modelChanged(); });
    if (parts_.voice) {
        voice_.emplace(parts_.executor, parts_.voice, parts_.place);
        watchingVoice_ = voice_->observe([this] { changes_.changed(); });
    }
    if (parts_.barKey) {
        tellBarKey();
        watchingKey_ = parts_.barKey->observe([this] {
            tellBarKey();
            changes_.changed();
        });
    }
    if (parts_.devices) {
        watchingDevices_ = parts_.devices->observe([this] {
            facts_.devices = parts_.devices->state();
            changes_.changed();
        });
    }
}

/// Where there is voice, its pane shows the key, and can change it.
void SettingsModel::tellBarKey() {
    if (!voice_)
        facts_.barKey = parts_.barKey->state();
}

void SettingsModel::modelChanged() {
    changes_.changed();
    const auto& state = parts_.model->state();
    auto now = std::pair(state.connection, state.agents);
    if (!looking_ || now == crewOf_)
        return;
    crewOf_ = std::move(now);
    tasks_.launch("crew labels", readCrew(weak_from_this()));
}

std::vector<SettingsGroup> SettingsModel::pane(SettingsTab tab) const {
    if (tab == SettingsTab::voice)
        return voice_ ? voice_->pane() : std::vector<SettingsGroup>();
    return settingsPane(tab, parts_.model->state(), facts_);
}

void SettingsModel::lookAgain() {
    looking_ = true;
    parts_.model->refreshBackground();
    if (voice_)
        voice_->lookAgain();
    tasks_.launch("terminal access", readTerminals(weak_from_this()));
    tasks_.launch("crew labels", readCrew(weak_from_this()));
    if (!facts_.secretPlace)
        tasks_.launch("secret's place", readSecretPlace(weak_from_this()));
}

void SettingsModel::lookAway() {
    looking_ = false;
    if (voice_)
        voice_->lookAway();
}

void SettingsModel::lookAt(SettingsTab tab, bool looking) {
    if (tab != SettingsTab::iphone || !parts_.devices)
        return;
    if (looking) {
        parts_.devices->look();
    } else {
        parts_.devices->lookAway();
    }
}

void SettingsModel::toggle(const std::string& id, bool on) {
    if (voice_ && voice_->toggle(id, on))
        return;
    if (id == SettingsId::loginItem) {
        parts_.model->setBackground(on);
    } else if (id == SettingsId::agentStrip) {
        parts_.model->setAgentStrip(on);
    } else if (id == SettingsId::showInDock) {
        parts_.defaults->set("KDShowInDock", on);
        facts_.showInDock = on;
        parts_.showInDock(on);
    } else if (id == SettingsId::notifyStops) {
        parts_.defaults->set("KDNotifyStops", on);
        facts_.notifyStops = on;
    } else if (id == SettingsId::relay && parts_.devices) {
        parts_.devices->setEnabled(on);
    }
    changes_.changed();
}

void SettingsModel::choose(const std::string& id, std::size_t index) {
    if (voice_ && voice_->choose(id, index))
        return;
    if (id == SettingsId::appearance && index < appearanceWords.size()) {
        parts_.model->setAppearance(std::string(appearanceWords[index]));
    } else if (id == SettingsId::interfaceMode) {
        parts_.model->setInterfaceMode(
            index == 1 ? InterfaceMode::expert : InterfaceMode::simple, InterfaceModeSource::settings);
    }
}

void SettingsModel::press(const std::string& id) {
    if (voice_ && voice_->press(id))
        return;
    auto& model = *parts_.model;
    if (id == SettingsId::allowLoginItem || id == SettingsId::barCommand) {
        model.screen().copyText(
            id == SettingsId::barCommand ? barCommand(parts_.place) : parts_.place.allowLoginItem);
        if (onNotice)
            onNotice("Copied");
    } else if (id == SettingsId::editRules) {
        model.openMain(path(NavSection::autopilot));
    } else if (id == SettingsId::revealHome) {
        model.screen().revealFile(parts_.place.dataHome);
    }
    for (const auto app : allTerminalApps) {
        if (id == SettingsId::terminal(app))
            pressTerminal(app);
    }
    if (parts_.devices)
        pressDevices(id);
}

void SettingsModel::record(const std::string& id, const std::string& keys) {
    if (voice_)
        voice_->record(id, keys);
}

void SettingsModel::pressDevices(const std::string& id) {
    auto& devices = *parts_.devices;
    if (id == SettingsId::pairPhone) {
        devices.startPairing();
    } else if (id == SettingsId::copyPairing) {
        devices.copy();
    } else if (id == SettingsId::allowPhone || id == SettingsId::declinePhone) {
        devices.decide(id == SettingsId::allowPhone);
    }
    if (const auto device = SettingsId::unpaired(id))
        devices.revoke(*device);
}

void SettingsModel::edit(const std::string& id, const std::string& text) {
    if (voice_ && voice_->edit(id, text))
        return;
    if (id == SettingsId::phoneCode && parts_.devices)
        parts_.devices->type(text);
}

void SettingsModel::submit(const std::string& id) {
    if (voice_ && voice_->submit(id))
        return;
    if (id == SettingsId::phoneCode && parts_.devices)
        parts_.devices->decide(true);
}

void SettingsModel::pressTerminal(TerminalApp app) {
    const auto& terminal = facts_.terminals[app];
    using Press = TerminalAccessRow::Content::Press;
    switch (TerminalAccessRow::content(app, terminal.status, terminal.running, terminal.asking, terminal.note)
                .press) {
    case Press::request:
        facts_.terminals[app].asking = true;
        changes_.changed();
        tasks_.launch("terminal permission", request(weak_from_this(), app));
        break;
    case Press::openSettings:
        parts_.model->screen().openURL(std::string(TerminalAccessRow::settingsURL));
        break;
    case Press::nothing:
        break;
    }
}

Task<> SettingsModel::request(std::weak_ptr<SettingsModel> weak, TerminalApp app) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto question = self->parts_.automation->request(app);
    self.reset(); // the question may stay open for as long as the user likes
    const auto result = co_await std::move(question);
    self = weak.lock();
    if (!self)
        co_return;
    auto& terminal = self->facts_.terminals[app];
    terminal.asking = false;
    terminal.note = TerminalAccessRow::noteAfter(result);
    if (result.kind == AutomationPrompter::RequestResult::Kind::status)
        terminal.status = result.status;
    self->changes_.changed();
}

Task<> SettingsModel::readTerminals(std::weak_ptr<SettingsModel> weak) {
    const auto self = weak.lock();
    if (!self)
        co_return;
    for (const auto app : allTerminalApps) {
        const auto status = co_await self->parts_.automation->status(app);
        auto& terminal = self->facts_.terminals[app];
        terminal.status = status;
        terminal.running = self->parts_.apps->isRunning(std::string(bundleId(app)));
    }
    self->changes_.changed();
}

/// A daemon that doesn't tell leaves what it told last.
Task<> SettingsModel::readCrew(std::weak_ptr<SettingsModel> weak) {
    const auto self = weak.lock();
    if (!self)
        co_return;
    boost::json::object all;
    auto crew =
        co_await attempt(self->parts_.session->post<CrewLabelList>("/v1/sessions/live", std::move(all)));
    if (!crew)
        co_return;
    self->facts_.crew = std::move(*crew);
    self->changes_.changed();
}

Task<> SettingsModel::readSecretPlace(std::weak_ptr<SettingsModel> weak) {
    const auto self = weak.lock();
    if (!self)
        co_return;
    const auto read = self->parts_.secretPlace;
    self->facts_.secretPlace = co_await self->parts_.pool->run(read);
    self->changes_.changed();
}

} // namespace kelvadrome
