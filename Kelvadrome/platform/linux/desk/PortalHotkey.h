#pragma once

#include "Kelvadrome/platform/linux/desk/PortalRequest.h"
#include "KelvadromeKit/bar/GlobalHotkey.h"

namespace kelvadrome {

/// The global key by the desktop's GlobalShortcuts portal, which lets the user choose another one: the name
/// that is registered is then what we asked for. Main thread, in its main context.
class PortalHotkey final : public GlobalHotkey {
public:
    static constexpr double portalLimit = 10; // seconds
    static constexpr double userLimit = 120;  // for a user whom the portal asks

    PortalHotkey(std::shared_ptr<SessionBus> bus, std::shared_ptr<Clock> clock);
    ~PortalHotkey() override;
    PortalHotkey(const PortalHotkey&) = delete;
    PortalHotkey& operator=(const PortalHotkey&) = delete;

    Task<HotkeyOutcome> registerKey(HotkeySpec spec) override;
    /// Absent too once the portal has closed the session or gone.
    std::optional<HotkeySpec> current() const override;

private:
    struct Session;
    struct State;
    static Task<HotkeyOutcome> take(std::shared_ptr<State> state, HotkeySpec spec);
    static Task<HotkeyOutcome> bind(std::shared_ptr<State> state, HotkeySpec spec);

    const std::shared_ptr<State> state_; // a registration may still wait when this has ended
};

} // namespace kelvadrome
