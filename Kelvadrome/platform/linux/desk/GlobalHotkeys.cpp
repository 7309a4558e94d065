#include "Kelvadrome/platform/linux/desk/GlobalHotkeys.h"

#include "Kelvadrome/platform/linux/desk/PortalHotkey.h"
#include "Kelvadrome/platform/linux/desk/X11Hotkey.h"

#include <cstdlib>

namespace kelvadrome {

std::unique_ptr<GlobalHotkey> makeGlobalHotkey(
    std::shared_ptr<SessionBus> bus, std::shared_ptr<Clock> clock) {
    // The X server of a Wayland session sees the keys of its own windows only.
    if (const char* const wayland = std::getenv("WAYLAND_DISPLAY"); wayland && *wayland)
        return std::make_unique<PortalHotkey>(std::move(bus), std::move(clock));
    return std::make_unique<X11Hotkey>(); // refuses every key where no server answers
}

} // namespace kelvadrome
