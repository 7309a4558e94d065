#include "Kelvadrome/platform/linux/desk/DesktopApps.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <vector>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

namespace kelvadrome {

namespace {

struct Known {
    std::string_view bundleId;
    std::array<std::string_view, 4> classes; // of its windows here, in lower case
};

constexpr std::array known{
    Known{"com.microsoft.edgemac",
        {"microsoft-edge", "microsoft-edge-stable", "microsoft-edge-beta", "microsoft-edge-dev"}},
};

/// An application that isn't known by another name goes by its id.
bool matches(const std::string& bundleId, std::string_view windowClass) {
    const auto lower = Text::lowercased(windowClass);
    const auto entry = std::ranges::find(known, std::string_view(bundleId), &Known::bundleId);
    return entry == known.end() ? lower == Text::lowercased(bundleId)
                                : std::ranges::find(entry->classes, lower) != entry->classes.end();
}

} // namespace

/// One connection to the X server. Nothing fails but that: what can't be read is as if it weren't there.
class DesktopApps::Display {
public:
    Display() : connection_(xcb_connect(nullptr, &screen_)) {
        if (!lost())
            ready_ =
                xcb_ewmh_init_atoms_replies(&ewmh_, xcb_ewmh_init_atoms(connection_.get(), &ewmh_), nullptr);
        if (ready_ && (screen_ < 0 || screen_ >= ewmh_.nb_screens))
            ready_ = false;
    }
    ~Display() { xcb_ewmh_connection_wipe(&ewmh_); }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    bool lost() const { return xcb_connection_has_error(connection_.get()) != 0; }

    /// The application's windows, the oldest first.
    std::vector<xcb_window_t> windows(const std::string& bundleId) {
        const auto all = list(xcb_ewmh_get_client_list, xcb_ewmh_get_client_list_reply);
        std::vector<xcb_get_property_cookie_t> asked; // all at once, so that it is one round trip
        for (const auto window : all) {
            asked.push_back(xcb_get_property(
                connection_.get(), 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, classLimit / 4));
        }
        std::vector<xcb_window_t> found;
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (matches(bundleId, windowClass(asked[i])))
                found.push_back(all[i]);
        }
        return found;
    }

    /// Of the windows of the first one's process, the one nearest to the front.
    xcb_window_t foremost(const std::vector<xcb_window_t>& windows) {
        const auto instance = pid(windows.front());
        const auto stacked = list(xcb_ewmh_get_client_list_stacking, xcb_ewmh_get_client_list_stacking_reply);
        for (auto it = stacked.rbegin(); it != stacked.rend(); ++it) {
            if (std::ranges::find(windows, *it) != windows.end() && (pid(*it) == instance))
                return *it;
        }
        return windows.front();
    }

    void bringForward(xcb_window_t window) {
        // As a pager asks it: a press of the user stands behind it, wherever the focus is.
        xcb_ewmh_request_change_active_window(
            &ewmh_, screen_, window, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER, XCB_CURRENT_TIME, XCB_NONE);
        xcb_flush(connection_.get());
    }

private:
    static constexpr std::uint32_t classLimit = 1024; // bytes

    struct Disconnect {
        void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
    };
    struct Free {
        void operator()(void* reply) const { std::free(reply); } // NOLINT: xcb allocates with malloc
    };

    std::vector<xcb_window_t> list(auto ask, auto read) {
        xcb_ewmh_get_windows_reply_t reply;
        if (!ready_ || !read(&ewmh_, ask(&ewmh_, screen_), &reply, nullptr))
            return {};
        std::vector<xcb_window_t> windows(reply.windows, reply.windows + reply.windows_len);
        xcb_ewmh_get_windows_reply_wipe(&reply);
        return windows;
    }

    /// The second of the two words that it holds, each with a zero after it; the first names the instance.
    std::string windowClass(xcb_get_property_cookie_t asked) {
        const std::unique_ptr<xcb_get_property_reply_t, Free> reply(
            xcb_get_property_reply(connection_.get(), asked, nullptr));
        if (!reply)
            return {}; // gone meanwhile
        const std::string_view both(static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
        const auto end = both.find('\0');
        if (end == both.npos)
            return {};
        const auto rest = both.substr(end + 1);
        return std::string(rest.substr(0, rest.find('\0')));
    }

    std::optional<std::uint32_t> pid(xcb_window_t window) {
        std::uint32_t pid = 0;
        if (!xcb_ewmh_get_wm_pid_reply(&ewmh_, xcb_ewmh_get_wm_pid(&ewmh_, window), &pid, nullptr))
            return std::nullopt;
        return pid;
    }

    int screen_ = 0;
    std::unique_ptr<xcb_connection_t, Disconnect> connection_;
    xcb_ewmh_connection_t ewmh_{};
    bool ready_ = false;
};

DesktopApps::DesktopApps() = default;
DesktopApps::~DesktopApps() = default;

DesktopApps::Display* DesktopApps::display() {
    const char* const wayland = std::getenv("WAYLAND_DISPLAY");
    const char* const x = std::getenv("DISPLAY");
    if ((wayland && *wayland) || !x || !*x)
        return nullptr;
    if (!display_ || display_->lost())
        display_ = std::make_unique<Display>();
    return display_->lost() ? nullptr : display_.get();
}

bool DesktopApps::isRunning(const std::string& bundleId) {
    auto* const screen = display();
    return screen && !screen->windows(bundleId).empty();
}

void DesktopApps::activate(const std::string& bundleId) {
    auto* const screen = display();
    if (!screen)
        return;
    const auto windows = screen->windows(bundleId);
    if (!windows.empty())
        screen->bringForward(screen->foremost(windows));
}

} // namespace kelvadrome
