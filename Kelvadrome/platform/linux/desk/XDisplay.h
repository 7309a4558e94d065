#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

namespace kelvadrome {

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); } // NOLINT: xcb allocates with malloc
};
/// What xcb hands out.
template <class T>
using OwnedReply = std::unique_ptr<T, FreeReply>;

/// One connection to the X server, and what its window manager lists. Nothing fails but the connection: what
/// can't be read is as if it weren't there. For one thread; a call is a few round trips to the server of this
/// machine.
class XDisplay {
public:
    XDisplay();
    ~XDisplay();
    XDisplay(const XDisplay&) = delete;
    XDisplay& operator=(const XDisplay&) = delete;

    /// Whether the session's windows are those of an X server: one that serves a Wayland session knows a part
    /// of them only.
    static bool isSession();
    /// Keeps `display` connected, anew after a server has gone. Absent where there is no such session or no
    /// server answers.
    static XDisplay* connected(std::unique_ptr<XDisplay>& display);

    /// Whether the rest of this can be asked.
    bool ready() const { return ready_ && !lost(); }
    bool lost() const { return xcb_connection_has_error(connection_.get()) != 0; }
    xcb_connection_t* get() const { return connection_.get(); }
    xcb_ewmh_connection_t* ewmh() { return &ewmh_; }
    xcb_window_t root() const { return ewmh_.screens[screen_]->root; }

    std::vector<xcb_window_t> oldestFirst();
    std::vector<xcb_window_t> lowestFirst();
    std::optional<xcb_window_t> active();
    std::optional<std::uint32_t> currentDesktop();
    /// Has the window manager bring it to the front and give it the focus. `time` is the user's press's,
    /// where it is known.
    void bringForward(xcb_window_t window, xcb_timestamp_t time = XCB_CURRENT_TIME);

    xcb_get_property_cookie_t ask(
        xcb_window_t window, xcb_atom_t property, xcb_atom_t type, std::uint32_t bytes);
    /// The property's bytes; empty when it isn't set or the window is gone.
    std::string text(xcb_get_property_cookie_t asked);
    /// Its 32-bit words.
    std::vector<std::uint32_t> words(xcb_get_property_cookie_t asked);
    xcb_atom_t atom(const std::string& name);
    std::optional<std::uint32_t> pid(xcb_window_t window);

private:
    struct Disconnect {
        void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
    };

    std::vector<xcb_window_t> list(auto ask, auto read);

    int screen_ = 0;
    std::unique_ptr<xcb_connection_t, Disconnect> connection_;
    xcb_ewmh_connection_t ewmh_{};
    bool ready_ = false;
};

} // namespace kelvadrome
