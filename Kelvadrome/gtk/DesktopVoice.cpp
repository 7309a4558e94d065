#include "Kelvadrome/gtk/DesktopVoice.h"

#include "Kelvadrome/platform/linux/audio/DictationApps.h"
#include "Kelvadrome/platform/linux/audio/GStreamerSource.h"
#include "Kelvadrome/platform/linux/audio/PocketSphinxEngine.h"
#include "Kelvadrome/platform/linux/audio/URLSessionPoster.h"
#include "KelvadromeKit/support/Files.h"

namespace kelvadrome {

namespace {

/// As POSIX says which of them counts.
std::string speechLocale(const EnvironmentMap& environment) {
    for (const auto* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const auto found = environment.find(name);
        if (found != environment.end() && !found->second.empty())
            return found->second;
    }
    return "en-US";
}

} // namespace

std::shared_ptr<VoiceModel> makeDesktopVoice(const LocalHub& hub) {
    return VoiceModel::make({.executor = hub.executor,
        .pool = &hub.pool,
        .clock = hub.clock,
        .client = hub.client,
        .secrets = std::make_shared<MachineSecretStore>(
            VoiceModel::openAIService, VoiceModel::openAIAccount, VoiceModel::openAILabel),
        .http = std::make_shared<URLSessionPoster>(hub.pool),
        .audio = std::make_shared<GStreamerSource>(hub.clock),
        .speech = std::make_shared<PocketSphinxEngine>(hub.pool, hub.clock),
        .opener = std::make_shared<SystemURLOpener>(hub.pool),
        .modes = std::make_shared<DefaultsModeKeyReader>(hub.pool, hub.environment),
        .journal = std::make_shared<DefaultsModeJournal>(hub.defaults),
        .locale = speechLocale(hub.environment),
        .home = Files::userHome()});
}

} // namespace kelvadrome
