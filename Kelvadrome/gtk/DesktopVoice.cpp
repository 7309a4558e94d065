#include "Kelvadrome/gtk/DesktopVoice.h"

#include "Kelvadrome/platform/linux/audio/DictationApps.h"
#include "Kelvadrome/platform/linux/audio/GStreamerSource.h"
#include "Kelvadrome/platform/linux/audio/PocketSphinxEngine.h"
#include "Kelvadrome/platform/linux/audio/URLSessionPoster.h"

namespace kelvadrome {

std::shared_ptr<VoiceModel> makeDesktopVoice(const LocalHub& hub) {
    auto parts = hub.voiceDependencies();
    parts.http = std::make_shared<URLSessionPoster>(hub.pool);
    parts.audio = std::make_shared<GStreamerSource>(hub.clock);
    parts.speech = std::make_shared<PocketSphinxEngine>(hub.pool, hub.clock);
    parts.opener = std::make_shared<SystemURLOpener>(hub.pool);
    parts.modes = std::make_shared<DefaultsModeKeyReader>(hub.pool, hub.environment);
    return VoiceModel::make(std::move(parts));
}

} // namespace kelvadrome
