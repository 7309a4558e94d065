#include "Kelvadrome/platform/linux/desk/X11Hotkey.h"

#include "Kelvadrome/glib/GLibOwned.h"
#include "Kelvadrome/platform/linux/desk/X11Keyboard.h"
#include "Kelvadrome/platform/linux/desk/XDisplay.h"
#include "KelvadromeKit/support/Log.h"

#include <glib-unix.h>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

// A field in this header has the name of a keyword of C++.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

namespace kelvadrome {

/// One connection with the grabs of one key on it. Held by the source that watches it, too, so that it
/// outlives a callback that ends its owner.
class X11Hotkey::Grabs : public std::enable_shared_from_this<Grabs> {
public:
    explicit Grabs(X11Hotkey& owner) : owner_(&owner) {}

    /// False when no server answers, or one too old for what is needed of it.
    bool open() {
        if (!display_.ready() || !useXkb())
            return false;
        source_.reset(g_unix_fd_source_new(xcb_get_file_descriptor(display_.get()), G_IO_IN));
        using Kept = std::shared_ptr<Grabs>;
        const GUnixFDSourceFunc ready = [](gint, GIOCondition, gpointer kept) -> gboolean {
            const auto self = *static_cast<Kept*>(kept);
            return self->readAll();
        };
        g_source_set_callback(source_.get(), G_SOURCE_FUNC(ready),
            std::make_unique<Kept>(shared_from_this()).release(),
            [](gpointer kept) { const std::unique_ptr<Kept> owner(static_cast<Kept*>(kept)); });
        g_source_attach(source_.get(), nullptr);
        return true;
    }
    void close() {
        closed_ = true;
        owner_ = nullptr;
        if (source_)
            g_source_destroy(source_.get());
    }

    bool lost() const { return display_.lost(); }
    std::optional<HotkeySpec> current() const { return chord_ && !lost() ? wanted_ : std::nullopt; }

    HotkeyOutcome take(HotkeySpec spec) {
        if (held_)
            told(false); // what is still down is a key of before
        release();
        if (closed_)
            return HotkeyOutcome::failed(HotkeyStatus::noDisplay);
        wanted_ = std::move(spec);
        const auto outcome = place();
        stands_ = outcome;
        if (outcome.kind != HotkeyOutcome::Kind::registered)
            wanted_.reset();
        readSoon();
        return outcome;
    }

private:
    /// A key that is held gives one press and one release, and changes of the layout are told of.
    bool useXkb() {
        auto* const x = display_.get();
        const auto* const extension = xcb_get_extension_data(x, &xcb_xkb_id);
        if (!extension || !extension->present)
            return false;
        xkbEvent_ = extension->first_event;
        const OwnedReply<xcb_xkb_use_extension_reply_t> used(
            xcb_xkb_use_extension_reply(x, xcb_xkb_use_extension(x, 1, 0), nullptr));
        constexpr std::uint32_t once = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
        const OwnedReply<xcb_xkb_per_client_flags_reply_t> flags(xcb_xkb_per_client_flags_reply(
            x, xcb_xkb_per_client_flags(x, XCB_XKB_ID_USE_CORE_KBD, once, once, 0, 0, 0), nullptr));
        constexpr std::uint16_t changes =
            XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
        constexpr std::uint16_t parts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS |
                                        XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_VIRTUAL_MODS;
        xcb_xkb_select_events(x, XCB_XKB_ID_USE_CORE_KBD, changes, 0, changes, parts, parts, nullptr);
        xcb_flush(x);
        return used && used->supported && flags && (flags->value & once);
    }

    gboolean readAll() {
        g_source_set_ready_time(source_.get(), -1);
        while (!closed_) {
            const OwnedReply<xcb_generic_event_t> event(xcb_poll_for_event(display_.get()));
            if (event)
                read(*event);
            else if (std::exchange(moved_, false))
                follow(); // reads of what it asks, and events may have come with that
            else
                break;
        }
        if (closed_ || !lost())
            return closed_ ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
        closed_ = true;
        if (held_)
            told(false);
        if (wanted_)
            changed(HotkeyOutcome::failed(HotkeyStatus::noDisplay));
        return G_SOURCE_REMOVE;
    }

    /// What came while a reply was waited for makes the connection readable no more.
    void readSoon() {
        if (source_ && !closed_)
            g_source_set_ready_time(source_.get(), 0);
    }

    void read(const xcb_generic_event_t& event) {
        const auto type = event.response_type & 0x7f;
        if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) {
            // While the key is down all of the keyboard comes here.
            const auto key = reinterpret_cast<const xcb_key_press_event_t&>(event).detail;
            if (type == XCB_KEY_RELEASE) {
                if (down_ == key)
                    down_.reset();
                if (held_ == key)
                    told(false);
            } else if (!held_ && chord_ && key == chord_->keycode && down_ != key) {
                held_ = down_ = key;
                told(true);
            }
        } else if (type == XCB_MAPPING_NOTIFY || type == xkbEvent_) {
            moved_ = true;
        }
    }

    void told(bool pressed) {
        if (!pressed)
            held_.reset();
        guarded([pressed](X11Hotkey& owner) { tell(pressed ? owner.onPress : owner.onRelease); });
    }
    void changed(HotkeyOutcome outcome) {
        if (std::exchange(stands_, outcome) != outcome)
            guarded([outcome](X11Hotkey& owner) { tell(owner.onChange, outcome); });
    }
    /// GLib is C: nothing may be thrown through it.
    void guarded(const std::function<void(X11Hotkey&)>& call) {
        try {
            if (owner_)
                call(*owner_);
        } catch (...) {
            logLine("global key: " + describeException(std::current_exception()));
        }
    }

    /// The key that is down keeps its grab until it is up, so its release comes all the same.
    void follow() {
        if (!wanted_)
            return;
        const X11Keyboard keyboard(display_.get());
        if (chord_ && keyboard.chord(wanted_->key, wanted_->modifiers) == chord_)
            return;
        release();
        changed(place());
    }

    HotkeyOutcome place() {
        auto* const x = display_.get();
        const auto chord = X11Keyboard(x).chord(wanted_->key, wanted_->modifiers);
        if (!chord)
            return HotkeyOutcome::failed(lost() ? HotkeyStatus::noDisplay : HotkeyStatus::noSuchKey);
        std::vector<xcb_void_cookie_t> asked; // all at once, so that it is one round trip
        for (const auto locks : chord->locks)
            asked.push_back(xcb_grab_key_checked(x, 0, display_.root(),
                static_cast<std::uint16_t>(chord->modifiers | locks), chord->keycode, XCB_GRAB_MODE_ASYNC,
                XCB_GRAB_MODE_ASYNC));
        std::optional<HotkeyOutcome> refused;
        for (const auto cookie : asked) {
            const OwnedReply<xcb_generic_error_t> error(xcb_request_check(x, cookie));
            if (error && error->error_code == XCB_ACCESS)
                refused = HotkeyOutcome::taken();
            else if (error && !refused)
                refused = HotkeyOutcome::failed(error->error_code);
        }
        chord_ = chord;
        if (lost())
            refused = HotkeyOutcome::failed(HotkeyStatus::noDisplay);
        if (refused)
            release(); // of a key half ours, the user would never know when it works
        return refused.value_or(HotkeyOutcome::registered());
    }

    void release() {
        if (!chord_)
            return;
        for (const auto locks : chord_->locks)
            xcb_ungrab_key(display_.get(), chord_->keycode, display_.root(),
                static_cast<std::uint16_t>(chord_->modifiers | locks));
        xcb_flush(display_.get());
        chord_.reset();
    }

    using OwnedSource = std::unique_ptr<GSource, GLibRelease<g_source_unref>>;

    X11Hotkey* owner_; // null once it is gone or has another connection
    XDisplay display_;
    OwnedSource source_;
    int xkbEvent_ = -1;
    bool closed_ = false;
    bool moved_ = false; // the layout has changed and the grabs have not followed yet
    std::optional<HotkeySpec> wanted_;
    std::optional<X11Chord> chord_;       // that is grabbed
    std::optional<HotkeyOutcome> stands_; // how the wanted key stands, as the owner knows it
    std::optional<xcb_keycode_t> held_;   // the key whose press was told of
    std::optional<xcb_keycode_t> down_;   // and which is down still, for a key of before too: it repeats
};

X11Hotkey::X11Hotkey() = default;

X11Hotkey::~X11Hotkey() {
    if (grabs_)
        grabs_->close();
}

Task<HotkeyOutcome> X11Hotkey::registerKey(HotkeySpec spec) {
    if (!grabs_ || grabs_->lost()) {
        if (grabs_)
            grabs_->close();
        grabs_ = std::make_shared<Grabs>(*this);
        if (!grabs_->open()) {
            grabs_.reset();
            co_return HotkeyOutcome::failed(HotkeyStatus::noDisplay);
        }
    }
    const auto grabs = grabs_; // a callback may end this object
    co_return grabs->take(std::move(spec));
}

std::optional<HotkeySpec> X11Hotkey::current() const {
    return grabs_ ? grabs_->current() : std::nullopt;
}

} // namespace kelvadrome
