#include "Kelvadrome/platform/linux/desk/X11Keyboard.h"

#include "Kelvadrome/platform/linux/desk/XDisplay.h"
#include "KelvadromeKit/bar/HotkeySpec.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kelvadrome {

namespace {

namespace Symbol {
constexpr xcb_keysym_t firstF = 0xffbe;
constexpr xcb_keysym_t numLock = 0xff7f, scrollLock = 0xff14;
constexpr xcb_keysym_t altLeft = 0xffe9, altRight = 0xffea, metaLeft = 0xffe7, metaRight = 0xffe8;
constexpr xcb_keysym_t superLeft = 0xffeb, superRight = 0xffec;
} // namespace Symbol

struct Key {
    xcb_keysym_t symbol;
    xcb_keycode_t place; // on every keyboard for the PC that Linux drives, whatever is printed on the key
};

constexpr std::array<std::pair<std::string_view, Key>, 4> named{{
    {"Return", {0xff0d, 36}},
    {"Tab", {0xff09, 23}},
    {"Space", {0x20, 65}},
    {"Escape", {0xff1b, 9}},
}};

/// Rows of keys and where each begins.
constexpr std::array<std::pair<std::string_view, xcb_keycode_t>, 4> rows{{
    {"1234567890", 10},
    {"QWERTYUIOP", 24},
    {"ASDFGHJKL", 38},
    {"ZXCVBNM", 52},
}};

std::optional<Key> keyOf(std::string_view name) {
    if (const auto it = std::ranges::find(named, name, &std::pair<std::string_view, Key>::first);
        it != named.end())
        return it->second;
    for (const auto& [keys, place] : rows) {
        const auto at = name.size() == 1 ? keys.find(name.front()) : keys.npos;
        if (at == keys.npos)
            continue;
        const char key = name.front();
        const bool letter = key >= 'A';
        return Key{static_cast<xcb_keysym_t>(letter ? key - 'A' + 'a' : key),
            static_cast<xcb_keycode_t>(place + at)};
    }
    for (xcb_keysym_t number = 1; number <= 12; ++number) {
        if (name == "F" + std::to_string(number))
            return Key{Symbol::firstF + number - 1,
                static_cast<xcb_keycode_t>(number <= 10 ? 66 + number : 84 + number)};
    }
    return std::nullopt;
}

} // namespace

X11Keyboard::X11Keyboard(xcb_connection_t* connection) {
    const auto* const setup = xcb_get_setup(connection);
    first_ = setup->min_keycode;
    const auto count = static_cast<std::uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    const auto keys = xcb_get_keyboard_mapping(connection, first_, count);
    const auto modifiers = xcb_get_modifier_mapping(connection);
    if (const OwnedReply<xcb_get_keyboard_mapping_reply_t> reply(
            xcb_get_keyboard_mapping_reply(connection, keys, nullptr));
        reply) {
        columns_ = reply->keysyms_per_keycode;
        const auto* const begin = xcb_get_keyboard_mapping_keysyms(reply.get());
        symbols_.assign(begin, begin + xcb_get_keyboard_mapping_keysyms_length(reply.get()));
    }
    if (const OwnedReply<xcb_get_modifier_mapping_reply_t> reply(
            xcb_get_modifier_mapping_reply(connection, modifiers, nullptr));
        reply) {
        perModifier_ = reply->keycodes_per_modifier;
        const auto* const begin = xcb_get_modifier_mapping_keycodes(reply.get());
        workers_.assign(begin, begin + xcb_get_modifier_mapping_keycodes_length(reply.get()));
    }
}

/// The first layout that has it counts, and in that the level that needs fewer modifiers.
std::optional<xcb_keycode_t> X11Keyboard::keycodeOf(xcb_keysym_t symbol) const {
    for (std::size_t column = 0; column < columns_; ++column) {
        for (std::size_t at = column; at < symbols_.size(); at += columns_) {
            if (symbols_[at] == symbol)
                return static_cast<xcb_keycode_t>(first_ + at / columns_);
        }
    }
    return std::nullopt;
}

std::optional<xcb_keycode_t> X11Keyboard::keycode(std::string_view key) const {
    const auto wanted = keyOf(key);
    if (!wanted || symbols_.empty())
        return std::nullopt;
    // Where no layout has Latin letters, the key in its place on a keyboard that has.
    return keycodeOf(wanted->symbol).value_or(wanted->place);
}

std::uint16_t X11Keyboard::modifierOf(std::initializer_list<xcb_keysym_t> symbols) const {
    for (std::size_t at = 0; at < workers_.size(); ++at) {
        const auto key = workers_[at];
        if (key < first_)
            continue; // an empty place
        const auto row = std::size_t(key - first_) * columns_;
        for (auto i = row; i < std::min(row + columns_, symbols_.size()); ++i) {
            if (std::ranges::find(symbols, symbols_[i]) != symbols.end())
                return static_cast<std::uint16_t>(1u << (at / perModifier_));
        }
    }
    return 0;
}

std::optional<X11Chord> X11Keyboard::chord(std::string_view key, std::uint32_t modifiers) const {
    const auto code = keycode(key);
    if (!code)
        return std::nullopt;
    const auto orElse = [](std::uint16_t bit, std::uint16_t usual) { return bit ? bit : usual; };
    const std::pair<std::uint32_t, std::uint16_t> bits[] = {{HotkeySpec::controlKey, XCB_MOD_MASK_CONTROL},
        {HotkeySpec::shiftKey, XCB_MOD_MASK_SHIFT},
        {HotkeySpec::optionKey,
            orElse(modifierOf({Symbol::altLeft, Symbol::altRight, Symbol::metaLeft, Symbol::metaRight}),
                XCB_MOD_MASK_1)},
        {HotkeySpec::cmdKey, orElse(modifierOf({Symbol::superLeft, Symbol::superRight}), XCB_MOD_MASK_4)}};
    X11Chord chord{*code, 0, {0}};
    for (const auto& [bit, mask] : bits) {
        if (modifiers & bit)
            chord.modifiers |= mask;
    }
    for (const auto lock :
        {std::uint16_t(XCB_MOD_MASK_LOCK), modifierOf({Symbol::numLock}), modifierOf({Symbol::scrollLock})}) {
        if (lock == 0 || (lock & chord.modifiers) ||
            std::ranges::find(chord.locks, lock) != chord.locks.end())
            continue;
        const auto without = chord.locks;
        for (const auto others : without)
            chord.locks.push_back(static_cast<std::uint16_t>(others | lock));
    }
    return chord;
}

} // namespace kelvadrome
