#pragma once

#include "Kelvadrome/platform/linux/session/SessionBus.h"
#include "KelvadromeKit/bar/GlobalHotkey.h"
#include "KelvadromeKit/support/Clock.h"

#include <memory>

namespace kelvadrome {

/// The global key of this session: an X server's, or on Wayland the portal's. Without a display there is one
/// that takes no key. Never null.
std::unique_ptr<GlobalHotkey> makeGlobalHotkey(std::shared_ptr<SessionBus> bus, std::shared_ptr<Clock> clock);

} // namespace kelvadrome
