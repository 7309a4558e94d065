#pragma once

#include "KelvadromeKit/voice/VoiceRoute.h"

#include <optional>
#include <string>

namespace kelvadrome {

/// The route in force and why it is that one, for the settings. `facts` are those that it was decided by.
std::string voiceRouteLine(const VoiceRoute& route, const VoiceRoute::Facts& facts,
    const std::optional<std::string>& appName, bool capReached);

} // namespace kelvadrome
