#pragma once

#include "KelvadromeKit/bar/GlobalHotkey.h"

#include <memory>

namespace kelvadrome {

/// The global key on an X server: a grab of the key where the keyboard's layouts have it, with its modifiers
/// and whatever locks are on. Follows a change of the layout. A server that comes back is not told of: the
/// toolkit ends a program with its display. `failed` carries X's own error codes too. Main thread, in its
/// main context.
class X11Hotkey final : public GlobalHotkey {
public:
    X11Hotkey();
    ~X11Hotkey() override;
    X11Hotkey(const X11Hotkey&) = delete;
    X11Hotkey& operator=(const X11Hotkey&) = delete;

    Task<HotkeyOutcome> registerKey(HotkeySpec spec) override;
    /// Absent too while another program has the key's place in a new layout, and once the server has gone.
    std::optional<HotkeySpec> current() const override;

private:
    class Grabs;

    std::shared_ptr<Grabs> grabs_; // absent before the first key; replaced when its connection was lost
};

} // namespace kelvadrome
