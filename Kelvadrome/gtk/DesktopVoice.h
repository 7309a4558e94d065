#pragma once

#include "Kelvadrome/hub/LocalHub.h"
#include "Kelvadrome/model/VoiceModel.h"

#include <memory>

namespace kelvadrome {

/// Voice on this desktop, put together: microphone, speech engine, keyring, the way to the cloud, and
/// dictation apps. `hub` outlives it.
std::shared_ptr<VoiceModel> makeDesktopVoice(const LocalHub& hub);

} // namespace kelvadrome
