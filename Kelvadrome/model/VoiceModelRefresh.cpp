#include "Kelvadrome/model/VoiceModel.h"
#include "KelvadromeKit/support/Log.h"
#include "KelvadromeKit/voice/VoiceCalls.h"

namespace kelvadrome {

namespace {

/// All that is looked at to tell whether the app on this machine is the real one.
struct BundleLook {
    DictationURLApp app;
    std::vector<std::string> roots;
    std::string home;
    std::optional<std::string> path; // as the daemon's scan has it
    std::optional<bool> teamOK;      // the same
    std::map<std::string, bool> teams;
    CodeSignature::Read signature;
};

struct BundleFound {
    std::optional<VerifiedDictationApp> verified;
    std::optional<std::pair<std::string, bool>> team; // a signature that was looked at just now
};

/// Blocks.
BundleFound look(const BundleLook& at) {
    BundleFound found;
    std::optional<std::string> place;
    if (at.path)
        place = BundleVerifier::locateAt(BundleVerifier::expand(*at.path, at.home), at.app, at.roots);
    if (!place)
        place = BundleVerifier::locate(at.app, at.roots);
    if (!place)
        return found;
    auto teamOK = at.teamOK;
    if (at.app.teamId) {
        const auto known = at.teams.find(*place);
        const bool matches = known == at.teams.end()
                                 ? CodeSignature::teamMatches(at.app, *place, at.signature)
                                 : known->second;
        found.team.emplace(*place, matches);
        teamOK = matches && teamOK.value_or(true);
    }
    found.verified = BundleVerifier::verify(at.app, *place, teamOK);
    return found;
}

} // namespace

Task<> VoiceModel::refresh(bool force) {
    return refreshNow(weak_from_this(), force);
}

Task<> VoiceModel::refreshNow(Weak weak, bool force) {
    if (const auto self = weak.lock()) {
        self->lastRefresh_ = self->parts_.clock->uptime();
    } else {
        co_return;
    }
    co_await readMachine(weak);
    const bool last = co_await readDaemon(weak, force);
    if (!last)
        co_return; // a later refresh does the rest
    co_await verify(weak);
    if (const auto self = weak.lock())
        self->registerHotkey();
    co_await tellEngines(weak);
}

Task<> VoiceModel::readMachine(Weak weak) {
    auto self = weak.lock();
    if (!self)
        co_return;
    const auto audio = self->parts_.audio;
    self.reset();
    auto asking = audio->state();
    auto microphone = co_await attempt(std::move(asking));
    self = weak.lock();
    if (self && microphone)
        self->set(&VoiceState::microphone, *microphone);
    if (self && self->parts_.speech) {
        const auto apple = AppleTranscriber::state(*self->parts_.speech, self->parts_.locale);
        self->set(&VoiceState::apple, apple);
    }
    self.reset();
    co_await readKey(weak);
}

Task<> VoiceModel::readKey(Weak weak) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto looking = self->parts_.pool->run([secrets = self->parts_.secrets] { return secrets->exists(); });
    const auto press = self->keyPresses_;
    self.reset();
    const bool saved = co_await std::move(looking);
    if (self = weak.lock(); !self || self->keyPresses_ != press)
        co_return; // the user has changed it meanwhile
    auto key = self->state_.key;
    key.saved = saved;
    self->set(&VoiceState::key, std::move(key));
}

/// True when this was the last refresh that was asked for. What can't be read stays as it was.
Task<bool> VoiceModel::readDaemon(Weak weak, bool force) {
    auto self = weak.lock();
    if (!self)
        co_return false;
    const auto client = self->parts_.client;
    const auto turn = ++self->refreshes_;
    self.reset();

    auto readingSettings = voiceSettings(client);
    auto settings = co_await attempt(std::move(readingSettings));
    self = weak.lock();
    if (!self || self->refreshes_ != turn)
        co_return false;
    if (settings)
        self->settingsRead(settings->value_or(VoiceSettingsWire()), settings->has_value());
    self.reset();

    auto scanning = voiceScan(client, force);
    auto scan = co_await attempt(std::move(scanning));
    self = weak.lock();
    if (!self || self->refreshes_ != turn)
        co_return false;
    if (scan)
        self->set(&VoiceState::scan, std::move(*scan));
    co_return true;
}

/// What a clip has come to, for those who see it counted.
Task<> VoiceModel::readUsed(Weak weak) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto reading = voiceSettings(self->parts_.client);
    self.reset();
    auto settings = co_await attempt(std::move(reading));
    self = weak.lock();
    if (self && settings && *settings && (*settings)->usedMinutes)
        self->set(&VoiceState::usedMinutes, (*settings)->usedMinutes);
}

void VoiceModel::settingsRead(VoiceSettingsWire settings, bool known) {
    if (settings.usedMinutes)
        set(&VoiceState::usedMinutes, settings.usedMinutes);
    confirmed_ = std::move(settings);
    set(&VoiceState::settingsKnown, known);
    showSettings();
}

Task<> VoiceModel::verify(Weak weak) {
    auto self = weak.lock();
    if (!self)
        co_return;
    const auto turn = ++self->looks_;
    const auto id = self->selectedId();
    const auto app = VoiceRoute::isBuiltin(id) ? std::nullopt : DictationURLApp::find(id);
    if (!app) {
        self->useVerified(std::nullopt);
        co_return;
    }
    const auto& parts = self->parts_;
    BundleLook at{.app = *app,
        .roots = parts.roots,
        .home = parts.home,
        .path = {},
        .teamOK = {},
        .teams = self->teamCache_,
        .signature = parts.signature};
    if (const auto* const found = self->state_.scan ? self->state_.scan->app(id) : nullptr) {
        at.path = found->path;
        at.teamOK = found->teamOK;
    }
    auto looking = parts.pool->run([at = std::move(at)] { return look(at); });
    self.reset();
    auto found = co_await attempt(std::move(looking));
    self = weak.lock();
    if (!self || self->looks_ != turn)
        co_return;
    if (!found) {
        logLine("A dictation app could not be looked at: " + describeException(found.error()));
        co_return self->useVerified(std::nullopt);
    }
    if (found->team)
        self->teamCache_.insert(*found->team);
    self->useVerified(std::move(found->verified));
}

void VoiceModel::useVerified(std::optional<VerifiedDictationApp> verified) {
    if (state_.verified == verified)
        return;
    const auto before = std::exchange(dictation_, nullptr);
    // The app that the user still wants, but is no longer proved to be the one, gets nothing more to open.
    if (before && !verified && before->target().app.id == selectedId())
        before->abandon();
    if (before)
        tasks_.launch("former dictation app", closeDictation(before, nullptr));
    if (verified) {
        dictation_ = DictationController::make(
            *verified, {parts_.opener, parts_.modes, parts_.journal, gate_,
                           [client = parts_.client](std::string previous, bool restored) {
                               return voiceModeSwitched(client, std::move(previous), restored);
                           }});
        // Asked for before the bar can ask it for anything.
        tasks_.launch("dictation app", dictation_->recoverAfterCrash());
    }
    set(&VoiceState::verified, std::move(verified));
}

} // namespace kelvadrome
