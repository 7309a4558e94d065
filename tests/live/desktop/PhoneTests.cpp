#include "tests/live/desktop/DesktopStage.h"

#include <gio/gio.h>

namespace kelvadrome::test {
namespace {

/// The first of three ports in a row that nobody has.
std::string threePorts() {
    while (true) {
        const OwnedObject<GSocketListener> listener(g_socket_listener_new());
        const auto port = g_socket_listener_add_any_inet_port(listener.get(), nullptr, nullptr);
        const auto next = [&](int by) {
            return g_socket_listener_add_inet_port(
                       listener.get(), static_cast<guint16>(port + by), nullptr, nullptr) == TRUE;
        };
        if (port != 0 && port < 65'000 && next(1) && next(2))
            return std::to_string(port);
    }
}

/// The relay as `kd relay serve` starts it, and a browser as the phone.
TEST_F(DesktopStage, aPhoneScansTheCodeAndItsAnswerIsTypedIntoThePane) {
    finishSetupBeforehand();
    const auto relay = startScript(
        bin / "resources/kelvadrome/dist/bin.js", {"relay", "serve", "--port", threePorts()}, "relay.log");
    hear("relay.log", "The relay serves");
    startApp({"-KDOpenSettings", "iphone"});
    waitActive("Settings");
    reader->press(see("Answer from your iPhone", "switch"));
    see("Connected");
    press("Pair a phone");
    see("Pairing QR code");
    const auto phone =
        startScript(TEST_SOURCES "/companion/phone-walk.mjs", {scanCode(), "SQLite"}, "phone.log");
    const auto digits = hear("phone.log", "digits ");
    seePart("wants to pair.");
    until(
        [&] {
            const auto at = reader->focused();
            return at && at->role == "text box" && at->name == "6 digits";
        },
        "the field to have the focus by itself");
    type(digits);
    press("Allow");
    see("Paired. The phone shows your Inbox now.");
    hear("phone.log", "paired");

    startAgent("menu");
    seeInPane("menu", "You chose: SQLite");
    hear("phone.log", "answered");

    press("Unpair");
    reader->press(see("Unpair Unpair", "button")); // the question's; its words are its label and its key's
    see("No phone yet.");
    hear("phone.log", "unpaired");
    until([&] { return !phone->running(); }, "the browser to end");
    EXPECT_EQ(phone->exitStatus(), 0);
}

} // namespace
} // namespace kelvadrome::test
