// Presses a global key again and again, as a keyboard would, and tells how long the window that it brings
// takes to stand there, painted and with the focus:
//   bench_bar_key TITLE KEYSYM ROUNDS    Control and Alt are held; prints {"p50":...,"p95":...} in
//   milliseconds
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xdamage.h>
#include <X11/keysym.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <poll.h>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto patience = 10s;  // for one change
constexpr auto between = 150ms; // of two presses, for what the last one left to do

class Bench {
public:
    Bench(Display* display, std::string title, KeySym key)
        : display_(display), root_(DefaultRootWindow(display)), title_(std::move(title)),
          key_(XKeysymToKeycode(display, key)) {
        int error = 0;
        if (!XDamageQueryExtension(display, &damageEvents_, &error))
            fail("no damage extension");
        XSelectInput(display, root_, PropertyChangeMask | SubstructureNotifyMask);
    }

    /// Milliseconds from the press to the painted, focused window, which is away again at the end.
    double round() {
        // What a window that is new here has painted before it was watched isn't told: its first round counts
        // for nothing.
        const auto began = Clock::now();
        press();
        bool fresh = false;
        wait([&](bool drawn) {
            if (!window_ && (window_ = find(root_))) {
                fresh = true;
                damage_ = XDamageCreate(display_, window_, XDamageReportNonEmpty);
            }
            return (drawn || fresh) && viewable() && focused();
        });
        const std::chrono::duration<double, std::milli> took = Clock::now() - began;
        press();
        wait([&](bool) { return !viewable(); });
        std::this_thread::sleep_for(between);
        while (XPending(display_)) {
            XEvent old;
            XNextEvent(display_, &old);
        }
        XDamageSubtract(display_, damage_, None, None); // so that the next drawing is told
        return took.count();
    }

private:
    [[noreturn]] static void fail(const char* words) {
        std::fprintf(stderr, "bench_bar_key: %s\n", words);
        std::exit(1);
    }

    void press() {
        const KeyCode modifiers[] = {
            XKeysymToKeycode(display_, XK_Control_L), XKeysymToKeycode(display_, XK_Alt_L)};
        for (const auto code : modifiers)
            XTestFakeKeyEvent(display_, code, True, CurrentTime);
        XTestFakeKeyEvent(display_, key_, True, CurrentTime);
        XTestFakeKeyEvent(display_, key_, False, CurrentTime);
        for (const auto code : modifiers)
            XTestFakeKeyEvent(display_, code, False, CurrentTime);
        XFlush(display_);
    }

    /// `done` is asked after each event, and meanwhile once a millisecond: not all that it looks at tells us
    /// of itself.
    template <class Done>
    void wait(Done done) {
        const auto end = Clock::now() + patience;
        for (bool drawn = false; !done(drawn);) {
            if (Clock::now() > end)
                fail("waited in vain for the window");
            pollfd ready{ConnectionNumber(display_), POLLIN, 0};
            if (!XPending(display_) && poll(&ready, 1, 1) == 0)
                continue;
            while (XPending(display_)) {
                XEvent event;
                XNextEvent(display_, &event);
                if (event.type != damageEvents_ + XDamageNotify)
                    continue;
                XDamageSubtract(display_, damage_, None, None);
                drawn = true;
            }
        }
    }

    bool viewable() const {
        XWindowAttributes attributes{};
        return window_ && XGetWindowAttributes(display_, window_, &attributes) &&
               attributes.map_state == IsViewable;
    }

    /// The toolkit gives the focus to a window inside its own.
    bool focused() const {
        Window focus = None, root = None, parent = None, *children = nullptr;
        int revert = 0;
        unsigned count = 0;
        XGetInputFocus(display_, &focus, &revert);
        if (!window_ || focus == window_ || focus <= PointerRoot)
            return window_ && focus == window_;
        if (XQueryTree(display_, focus, &root, &parent, &children, &count) && children)
            XFree(children);
        return parent == window_;
    }

    Window find(Window below) const {
        Window root = 0, parent = 0, found = 0, *children = nullptr;
        unsigned count = 0;
        if (!XQueryTree(display_, below, &root, &parent, &children, &count))
            return None;
        for (unsigned i = 0; i < count && !found; ++i) {
            char* name = nullptr;
            if (XFetchName(display_, children[i], &name) && title_ == name)
                found = children[i];
            if (name)
                XFree(name);
            if (!found)
                found = find(children[i]);
        }
        if (children)
            XFree(children);
        return found;
    }

    Display* const display_;
    const Window root_;
    const std::string title_;
    const KeyCode key_;
    int damageEvents_ = 0;
    Window window_ = None;
    Damage damage_ = None;
};

} // namespace

int main(int count, char** words) {
    const std::unique_ptr<Display, decltype(&XCloseDisplay)> display(XOpenDisplay(nullptr), &XCloseDisplay);
    const auto key = count == 4 ? XStringToKeysym(words[2]) : NoSymbol;
    if (!display || key == NoSymbol) {
        std::fputs("usage: bench_bar_key TITLE KEYSYM ROUNDS\n", stderr);
        return 64;
    }
    XSetErrorHandler(
        [](Display*, XErrorEvent*) { return 0; }); // windows come and go while they are looked at
    Bench bench(display.get(), words[1], key);
    bench.round(); // the first makes what the others only show
    std::vector<double> took;
    for (int i = std::atoi(words[3]); i > 0; --i)
        took.push_back(bench.round());
    std::ranges::sort(took);
    const auto at = [&](double part) { return took[static_cast<std::size_t>(part * (took.size() - 1))]; };
    std::printf("{\"p50\":%.1f,\"p95\":%.1f}\n", at(.5), at(.95));
}
