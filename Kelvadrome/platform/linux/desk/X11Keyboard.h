#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>
#include <xcb/xcb.h>

namespace kelvadrome {

/// One way to press a key on an X keyboard.
struct X11Chord {
    xcb_keycode_t keycode = 0;
    std::uint16_t modifiers = 0; // X's bits
    /// The bits of Caps, Num and Scroll Lock in every combination, none among them.
    std::vector<std::uint16_t> locks;

    bool operator==(const X11Chord&) const = default;
};

/// Where keys and modifiers are on an X keyboard with its layouts of this moment.
class X11Keyboard {
public:
    /// Asks the server. An answer that doesn't come leaves a keyboard without keys.
    explicit X11Keyboard(xcb_connection_t* connection);

    /// Of a key by the name that it has in HotkeySpec and that record's modifiers; absent when no key has it.
    std::optional<X11Chord> chord(std::string_view key, std::uint32_t modifiers) const;
    std::optional<xcb_keycode_t> keycode(std::string_view key) const;
    std::optional<xcb_keycode_t> keycodeOf(xcb_keysym_t symbol) const;

private:
    /// The bit of the first modifier that a key with one of these symbols works.
    std::uint16_t modifierOf(std::initializer_list<xcb_keysym_t> symbols) const;

    xcb_keycode_t first_ = 0;
    std::size_t columns_ = 0;            // symbols of each key
    std::vector<xcb_keysym_t> symbols_;  // row by row
    std::size_t perModifier_ = 0;        // keys of each of the eight modifiers
    std::vector<xcb_keycode_t> workers_; // row by row
};

} // namespace kelvadrome
