#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

namespace kelvadrome::test {

/// A person at the X display of this moment, with a program whose windows are there. What it does has reached
/// the server when a call returns.
class Person {
public:
    Person() : x(xcb_connect(nullptr, nullptr)) {
        root = xcb_setup_roots_iterator(xcb_get_setup(x)).data->root;
    }
    ~Person() { xcb_disconnect(x); }
    Person(const Person&) = delete;
    Person& operator=(const Person&) = delete;

    void press(xcb_keycode_t key) { fake(XCB_KEY_PRESS, key); }
    void release(xcb_keycode_t key) { fake(XCB_KEY_RELEASE, key); }
    void tap(xcb_keycode_t key) {
        press(key);
        release(key);
    }
    void button(bool down) { fake(down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, 1); }
    void moveTo(std::int16_t across, std::int16_t down) { fake(XCB_MOTION_NOTIFY, 0, across, down); }

    /// Of one colour, and mapped.
    xcb_window_t window(std::int16_t left, std::int16_t top, std::uint16_t width, std::uint16_t height,
        std::uint32_t colour) {
        const auto window = xcb_generate_id(x);
        xcb_create_window(x, XCB_COPY_FROM_PARENT, window, root, left, top, width, height, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL, &colour);
        return window;
    }
    void show(xcb_window_t window) {
        xcb_map_window(x, window);
        sync();
    }
    /// Whether some program has taken the pointer for itself.
    bool pointerIsTaken() {
        const std::unique_ptr<xcb_grab_pointer_reply_t, decltype(&std::free)> reply(
            xcb_grab_pointer_reply(x,
                xcb_grab_pointer(x, 0, root, 0, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, XCB_NONE, XCB_NONE,
                    XCB_CURRENT_TIME),
                nullptr),
            &std::free);
        xcb_ungrab_pointer(x, XCB_CURRENT_TIME);
        sync();
        return reply && reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED;
    }
    /// Whether another program may have this key; it is let go again.
    bool canGrab(std::uint16_t modifiers, xcb_keycode_t key) {
        const bool got = grab(modifiers, key);
        xcb_ungrab_key(x, key, root, modifiers);
        sync();
        return got;
    }
    bool grab(std::uint16_t modifiers, xcb_keycode_t key) {
        const std::unique_ptr<xcb_generic_error_t, decltype(&std::free)> error(
            xcb_request_check(x,
                xcb_grab_key_checked(x, 0, root, modifiers, key, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)),
            &std::free);
        return !error;
    }
    void sync() { std::free(xcb_get_input_focus_reply(x, xcb_get_input_focus(x), nullptr)); }

    xcb_connection_t* const x;
    xcb_window_t root = XCB_NONE;

private:
    void fake(std::uint8_t type, std::uint8_t detail, std::int16_t across = 0, std::int16_t down = 0) {
        xcb_test_fake_input(x, type, detail, XCB_CURRENT_TIME, root, across, down, 0);
        sync();
    }
};

} // namespace kelvadrome::test
