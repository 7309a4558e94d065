// Looks at a window from outside, so that any program is measured in the same way. Times are milliseconds
// since 1970.
//   bench_screen_watch paint TITLE             when it came, and when what it shows had last changed
//   bench_screen_watch repaints TITLE SECONDS  how often it was drawn anew
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xdamage.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::system_clock;
using namespace std::chrono_literals;

constexpr auto step = 5ms;          // between two looks
constexpr auto still = 2500ms;      // without a change, and the window is taken for finished
constexpr auto patience = 60s;      // for the window to come
constexpr int stripWidth = 48;      // of what is looked at, through the middle of the text
constexpr double stripAt = 0.45;    // of the window's width
constexpr double realChange = .002; // of the strip's pixels: more than a caret
constexpr auto frame = 8ms;         // damage within it is one drawing

double milliseconds(Clock::time_point time) {
    return std::chrono::duration<double, std::milli>(time.time_since_epoch()).count();
}

/// The window of this title that is mapped, or 0.
Window find(Display* display, Window below, const std::string& title) {
    Window root = 0, parent = 0, found = 0, *children = nullptr;
    unsigned count = 0;
    if (!XQueryTree(display, below, &root, &parent, &children, &count))
        return 0;
    for (unsigned i = 0; i < count && !found; ++i) {
        char* name = nullptr;
        XWindowAttributes attributes{};
        if (XFetchName(display, children[i], &name) && title == name &&
            XGetWindowAttributes(display, children[i], &attributes) && attributes.map_state == IsViewable)
            found = children[i];
        if (name)
            XFree(name);
        if (!found)
            found = find(display, children[i], title);
    }
    if (children)
        XFree(children);
    return found;
}

Window waitFor(Display* display, const std::string& title) {
    for (const auto start = Clock::now(); Clock::now() - start < patience;
         std::this_thread::sleep_for(step)) {
        if (const Window window = find(display, DefaultRootWindow(display), title))
            return window;
    }
    std::fprintf(stderr, "no window \"%s\" came\n", title.c_str());
    std::exit(1);
}

std::vector<std::uint32_t> strip(Display* display, Window window) {
    XWindowAttributes a{};
    XGetWindowAttributes(display, window, &a);
    auto* image = XGetImage(display, window, static_cast<int>(a.width * stripAt), 0, stripWidth,
        static_cast<unsigned>(a.height), AllPlanes, ZPixmap);
    std::vector<std::uint32_t> pixels;
    if (!image)
        return pixels;
    pixels.resize(static_cast<std::size_t>(stripWidth * a.height));
    std::memcpy(pixels.data(), image->data, pixels.size() * sizeof pixels[0]);
    XDestroyImage(image);
    return pixels;
}

bool differ(const std::vector<std::uint32_t>& left, const std::vector<std::uint32_t>& right) {
    if (left.size() != right.size())
        return true;
    std::size_t count = 0;
    for (std::size_t i = 0; i < left.size(); ++i)
        count += left[i] != right[i];
    return static_cast<double>(count) > realChange * static_cast<double>(left.size());
}

void paint(Display* display, const std::string& title) {
    const Window window = waitFor(display, title);
    const auto came = Clock::now();
    auto changed = came;
    auto shown = strip(display, window);
    while (Clock::now() - changed < still) {
        std::this_thread::sleep_for(step);
        const auto now = Clock::now();
        auto next = strip(display, window);
        if (!next.empty() && differ(shown, next)) {
            changed = now;
            shown = std::move(next);
        }
    }
    std::printf("{\"came\":%.1f,\"painted\":%.1f}\n", milliseconds(came), milliseconds(changed));
}

void repaints(Display* display, const std::string& title, int seconds) {
    int first = 0, error = 0;
    if (!XDamageQueryExtension(display, &first, &error))
        std::exit(1);
    const Window window = waitFor(display, title);
    const auto damage = XDamageCreate(display, window, XDamageReportRawRectangles);
    XSync(display, False);
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    auto last = Clock::time_point();
    int drawn = 0;
    while (Clock::now() < end) {
        pollfd wait{ConnectionNumber(display), POLLIN, 0};
        if (!XPending(display) && poll(&wait, 1, 20) == 0)
            continue;
        while (XPending(display)) {
            XEvent event;
            XNextEvent(display, &event);
            const auto now = Clock::now();
            if (event.type == first + XDamageNotify && now - last > frame)
                ++drawn;
            last = now;
        }
    }
    XDamageDestroy(display, damage);
    std::printf("{\"repaints\":%d}\n", drawn);
}

} // namespace

int main(int count, char** words) {
    const std::unique_ptr<Display, decltype(&XCloseDisplay)> display(XOpenDisplay(nullptr), &XCloseDisplay);
    XSetErrorHandler(
        [](Display*, XErrorEvent*) { return 0; }); // windows come and go while they are looked at
    if (display && count == 3 && std::strcmp(words[1], "paint") == 0) {
        paint(display.get(), words[2]);
    } else if (display && count == 4 && std::strcmp(words[1], "repaints") == 0) {
        repaints(display.get(), words[2], std::atoi(words[3]));
    } else {
        std::fputs("usage: bench_screen_watch paint TITLE | repaints TITLE SECONDS\n", stderr);
        return 64;
    }
}
