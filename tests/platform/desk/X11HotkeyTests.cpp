#include "Kelvadrome/platform/linux/desk/GlobalHotkeys.h"
#include "Kelvadrome/platform/linux/desk/X11Hotkey.h"
#include "Kelvadrome/platform/linux/desk/X11Keyboard.h"
#include "Kelvadrome/platform/linux/process/PosixCommand.h"
#include "KelvadromeKit/support/Files.h"

#include "tests/platform/desk/Person.h"
#include "tests/support/HeadlessDisplay.h"
#include "tests/support/bus/PrivateBus.h"

// Last: it makes macros of common words.
#include <X11/extensions/XInput2.h>

namespace kelvadrome::test {
namespace {

constexpr xcb_keycode_t control = 37, alt = 64, q = 24, a = 38, b = 56; // on a PC's keyboard
constexpr xcb_keycode_t caps = 66, num = 77;
constexpr std::uint16_t chordBits = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1;

/// Another program that sees how the server repeats a key that is held: from the device, beneath all grabs.
class RepeatWitness {
public:
    RepeatWitness() {
        int major = 2, minor = 2;
        XIQueryVersion(display_.get(), &major, &minor);
        unsigned char bits = 1 << XI_KeyPress;
        XIEventMask mask{XIAllDevices, sizeof bits, &bits};
        XISelectEvents(display_.get(), XDefaultRootWindow(display_.get()), &mask, 1);
        XSync(display_.get(), 0);
    }
    /// How many so far. Each has gone to whoever has the grab when the next one is seen.
    int repeats() {
        while (XPending(display_.get()) > 0) {
            XEvent event;
            XNextEvent(display_.get(), &event);
            if (!XGetEventData(display_.get(), &event.xcookie))
                continue;
            repeats_ += (static_cast<XIDeviceEvent*>(event.xcookie.data)->flags & XIKeyRepeat) != 0;
            XFreeEventData(display_.get(), &event.xcookie);
        }
        return repeats_;
    }

private:
    const std::unique_ptr<Display, decltype(&XCloseDisplay)> display_{XOpenDisplay(nullptr), &XCloseDisplay};
    int repeats_ = 0;
};

class X11HotkeyTest : public PrivateBus {
protected:
    void SetUp() override {
        if (!display->problem().empty())
            GTEST_SKIP() << display->problem();
        person = std::make_unique<Person>();
        witness = std::make_unique<RepeatWitness>();
        lay("us");
        const auto other = person->window(0, 0, 50, 50, 0);
        person->show(other);
        xcb_set_input_focus(person->x, XCB_INPUT_FOCUS_PARENT, other, XCB_CURRENT_TIME);
        person->sync();
        start();
    }
    void start() {
        key = makeGlobalHotkey(bus, std::make_shared<ManualClock>());
        key->onPress = [this] { ++presses; };
        key->onRelease = [this] { ++releases; };
        key->onChange = [this](HotkeyOutcome outcome) { changes.push_back(outcome); };
    }
    HotkeyOutcome take(const char* label) {
        return run(key->registerKey(HotkeySpec::fromLabel(label).value())).take();
    }
    void lay(const char* layout) {
        const auto done = runCommand("/usr/bin/setxkbmap", {layout}, Files::processEnvironment(), 20);
        ASSERT_EQ(done.status, 0) << done.errors;
    }
    void press(xcb_keycode_t what) {
        for (const auto one : {control, alt, what})
            person->press(one);
    }
    /// The modifiers go first, as with many a hand.
    void release(xcb_keycode_t what) {
        for (const auto one : {control, alt, what})
            person->release(one);
    }
    /// Waits until the server has repeated the key that is down.
    void repeated() {
        const int before = witness->repeats();
        waitFor([&] { return witness->repeats() > before + 1; }, "the keyboard's repeating");
    }
    void chord(xcb_keycode_t what) {
        press(what);
        release(what);
    }
    void heard(int times, const std::string& what) {
        waitFor([&] { return presses >= times && releases >= times; }, what);
        EXPECT_EQ(std::pair(presses, releases), std::pair(times, times)) << what;
    }
    /// A layout is followed a moment after it came: presses until one is heard.
    void worksSoon(xcb_keycode_t what) {
        const int before = releases;
        waitFor(
            [&] {
                chord(what);
                return releases > before;
            },
            "key " + std::to_string(what));
        // The server answers a new registration after it has sent all the presses.
        EXPECT_EQ(take(key->current().value().label().c_str()), HotkeyOutcome::registered());
        settle(*bus, *bus);
        presses = releases = 0;
    }

    std::unique_ptr<HeadlessDisplay> display = std::make_unique<HeadlessDisplay>();
    std::unique_ptr<Person> person;
    std::unique_ptr<RepeatWitness> witness;
    std::unique_ptr<GlobalHotkey> key;
    int presses = 0, releases = 0;
    std::vector<HotkeyOutcome> changes;
};

TEST_F(X11HotkeyTest, aKeyComesWhateverHasTheFocusAndWhateverLocksAreOn) {
    EXPECT_EQ(take("Control Option B"), HotkeyOutcome::registered());
    int times = 0;
    for (const auto lock : {caps, num, caps, num}) { // through all four states
        person->tap(b);                              // without its modifiers it is anybody's
        chord(b);
        heard(++times, "lock " + std::to_string(lock));
        person->tap(lock);
    }
    press(b);
    waitFor([&] { return presses > times; }, "the press");
    repeated();
    release(b);
    heard(++times, "the release of a held key");
    press(b);
    waitFor([&] { return presses > times; }, "the press");
    EXPECT_EQ(take("Control Option B"), HotkeyOutcome::registered()); // once more, while it is down
    heard(++times, "the release of the key of before");
    repeated();
    release(b);
    chord(b);
    heard(++times, "the next press, and no repeat before it");

    EXPECT_EQ(take("Control Option Q"), HotkeyOutcome::registered());
    chord(b);
    chord(q);
    heard(++times, "the key in place of the one of before");
}

TEST_F(X11HotkeyTest, aKeyThatAnotherProgramHasIsTakenWholly) {
    EXPECT_EQ(take("Control Option B"), HotkeyOutcome::registered());
    ASSERT_TRUE(person->grab(chordBits | XCB_MOD_MASK_LOCK, q)); // with Caps Lock only
    EXPECT_EQ(take("Control Option Q"), HotkeyOutcome::taken());
    EXPECT_EQ(key->current(), std::nullopt);
    for (const auto freed : {q, b})
        waitFor([&] { return person->canGrab(chordBits, freed); }, "a key that is kept by nobody");
}

TEST_F(X11HotkeyTest, aKeyIsWhereTheLayoutHasIt) {
    EXPECT_EQ(take("Control Option Q"), HotkeyOutcome::registered());
    press(q);
    waitFor([&] { return presses == 1; }, "the press");
    lay("fr");
    settle(*bus, *bus);
    release(q);
    heard(1, "the release where the key was");
    worksSoon(a); // that is Q on a French keyboard
    chord(q);
    chord(a);
    heard(1, "the new place alone");
    for (const char* layout : {"ru", "ru,us", "us"}) {
        lay(layout);
        worksSoon(q);
    }
    EXPECT_TRUE(changes.empty());
    ASSERT_TRUE(person->grab(chordBits, a)); // its place in the next layout
    lay("fr");
    waitFor([&] { return !changes.empty(); }, "the loss to be told of");
    lay("us");
    waitFor([&] { return key->current().has_value(); }, "the key to be got again");
    EXPECT_EQ(changes, (std::vector{HotkeyOutcome::taken(), HotkeyOutcome::registered()}));
    lay("fr");
    EXPECT_EQ(take("Control Option 1"), HotkeyOutcome::registered()); // there with Shift only
    worksSoon(10);
}

TEST_F(X11HotkeyTest, aServerThatGoesReleasesTheKeyAndANewOneIsFollowed) {
    EXPECT_EQ(take("Control Option B"), HotkeyOutcome::registered());
    press(b);
    waitFor([&] { return presses == 1; }, "the press");
    witness.reset(); // such a program ends with its server
    display.reset();
    waitFor([&] { return releases == 1; }, "a release");
    EXPECT_EQ(key->current(), std::nullopt);
    EXPECT_EQ(changes, std::vector{HotkeyOutcome::failed(HotkeyStatus::noDisplay)});
    EXPECT_EQ(take("Control Option B"), HotkeyOutcome::failed(HotkeyStatus::noDisplay));
    display = std::make_unique<HeadlessDisplay>();
    person = std::make_unique<Person>();
    EXPECT_EQ(take("Control Option B"), HotkeyOutcome::registered());
    key->onPress = [this] { // may end what calls it
        ++presses;
        key.reset();
    };
    chord(b);
    waitFor([&] { return presses == 2; }, "the press on the new display");
    waitFor([&] { return person->canGrab(chordBits, b); }, "the key to be given up");
}

} // namespace
} // namespace kelvadrome::test
