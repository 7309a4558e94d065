#include "tests/live/desktop/DesktopStage.h"
#include "tests/support/VirtualMicrophone.h"

namespace kelvadrome::test {
namespace {

constexpr const char* key = "ctrl+alt+b";

TEST_F(DesktopStage, whatIsSaidWhileTheKeyIsHeldStandsInTheBar) {
    VirtualMicrophone microphone;
    ASSERT_EQ(microphone.problem(), "");
    finishSetupBeforehand();
    startApp();
    waitUntilUp();
    hold(key);
    see("Listening.");
    microphone.speak("tell claude to run the tests again");
    until([&] { return microphone.quiet(); }, "the sentence to be said");
    release(key);
    seePart("run the tests", "list item");
    keys("Return");
    see("Claude Code, write");
    ASSERT_EQ(cards().size(), 1u);
    EXPECT_TRUE(cards().front().title.contains("run the tests")) << cards().front().title;
    keys("Escape");

    // The device goes while it is heard.
    hold(key);
    see("Listening.");
    microphone.unplug();
    see("The microphone went away.");
    release(key);
    EXPECT_TRUE(app->running());
}

} // namespace
} // namespace kelvadrome::test
