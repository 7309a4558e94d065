#include "Kelvadrome/model/NativeActions.h"

#include "tests/model/World.h"
#include "tests/support/TemporaryFolder.h"

namespace kelvadrome::test {
namespace {

using Lines = std::vector<std::string>;

/// A model with a page in front of it that says things.
class NativeAction : public testing::Test, protected World {
protected:
    NativeAction() {
        probe = {.check = [this](std::string) { return consent; },
            .request = [](std::string) -> Task<ConsentCode> { co_return 0; },
            .screenLocked = [this] { return locked; }};
        make();
    }

    void say(const std::string& type, const std::string& body) {
        readJSON(body, [&](const JSONValue& root) {
            NativeActions::handle(type, root.object(), *model);
            return 0;
        });
        loop.drain();
    }

    ConsentCode consent;
    bool locked = false;
};

TEST_F(NativeAction, whatFailsACheckIsDroppedWithoutAWord) {
    for (const auto& [type, body] : std::vector<std::pair<std::string, std::string>>{{"route", "{}"},
             {"route", R"({"route":7})"}, {"mode", R"({"mode":"wizard"})"}, {"voice", "{}"}, {"action", "{}"},
             {"action", R"({"action":"format"})"}, {"other", R"({"action":"chooseFolder"})"},
             {"action", R"({"action":"delegate","command":"rm -rf ~"})"},
             {"action", R"({"action":"delegate","command":"kdx"})"},
             {"action", R"({"action":"runSkill","run_id":"r 1","command":"kd skills run r 1"})"},
             {"action", R"({"action":"runSkill","run_id":"r1","command":"kd skills run r2"})"},
             {"action", R"({"action":"allowTerminal","app":"xterm"})"},
             {"action", R"({"action":"openFolder"})"},
             {"action", R"({"action":"openReceiptFile","path":"/no/such/file"})"},
             {"action", R"({"action":"openReceiptFile","path":"etc/passwd"})"}, {"ready", "{}"},
             {"onboarding", R"({"step":"1","primary_enabled":true})"}}) {
        say(type, body);
        EXPECT_EQ(screen->calls.lines(), Lines{}) << type << body;
        EXPECT_EQ(web->calls.lines(), Lines{}) << type << body;
        EXPECT_EQ(calls.lines(), Lines{}) << type << body;
        EXPECT_EQ(state().notice, std::nullopt) << type << body;
        EXPECT_FALSE(state().onboardingActive);
    }
    EXPECT_TRUE(daemon->requests().empty());
}

TEST_F(NativeAction, eachMessageHasItsEffect) {
    say("route", R"({"route":"/agents"})");
    EXPECT_EQ(state().section, NavSection::agents);
    say("mode", R"({"mode":"expert"})");
    EXPECT_EQ(state().interfaceMode, InterfaceMode::expert);
    EXPECT_EQ(web->calls.lines(), Lines{}) << "no echo into the page";
    say("voice", R"({"action":"start"})");
    EXPECT_EQ(calls.lines(), Lines{"voice start"});

    say("action", R"({"action":"runSkill","run_id":"r_1-A","command":"kd skills run r_1-A"})");
    EXPECT_EQ(screen->calls.last("copyText"), "copyText kd skills run r_1-A");
    EXPECT_EQ(state().notice, "Command copied. Paste it in Terminal to run the skill.");
    say("action", R"({"action":"delegate","command":"q hello"})");
    EXPECT_EQ(screen->calls.last("copyText"), "copyText q hello");
    EXPECT_EQ(state().notice, "Command copied. Paste it in Terminal to start the handoff.");
    say("action", R"({"action":"bringEdgeToFront"})");
    EXPECT_EQ(screen->calls.last("activateApplication"), "activateApplication com.microsoft.edgemac");

    TemporaryFolder folder;
    say("action", R"({"action":"openReceiptFile","path":")" + folder.path().string() + R"(/."})");
    EXPECT_EQ(screen->calls.last("revealFile"), "revealFile " + folder.path().string());
    say("action", R"({"action":"openFolder","topic":"t-9"})");
    loop.until([&] { return asked("/v1/topic/detail") == 1; }, "the topic's details to be asked for");
    EXPECT_EQ(daemon->requests("/v1/topic/detail")[0].body, R"({"topic":"t-9"})");

    say("action", R"({"action":"chooseFolder"})");
    loop.until([&] { return screen->onboardingMade; }, "the setup window");
    EXPECT_EQ(screen->calls.last("presentOnboarding"), "presentOnboarding s1 again system");
    say("onboarding_done", "{}");
    EXPECT_FALSE(state().onboardingActive);
    EXPECT_EQ(web->calls.last("navigate"), "navigate / all -");
}

TEST_F(NativeAction, aTerminalIsAskedForAndThePageToldHowItStands) {
    const auto told = [&](std::size_t times) {
        loop.until([&] { return web->calls.countOf("runScript") == times; }, "the page to be told");
    };
    consent = consentNotAsked;
    say("action", R"({"action":"allowTerminal","app":"iterm2"})");
    told(1);
    EXPECT_EQ(screen->calls.lines(), Lines{});
    EXPECT_TRUE(web->calls.lines()[0].ends_with(R"(({"iterm2":"notDetermined","terminal":"notDetermined"}))"))
        << web->calls.lines()[0];
    consent = consentDenied;
    say("action", R"({"action":"allowTerminal","app":"terminal"})");
    told(2);
    EXPECT_EQ(screen->calls.lines(),
        Lines{"openURL x-apple.systempreferences:com.apple.preference.security?Privacy_Automation"});
    locked = true;
    say("action", R"({"action":"allowTerminal","app":"terminal"})");
    told(3);
    EXPECT_EQ(state().notice, "Unlock the Mac first: macOS shows its question only on an unlocked screen.");
    say("action", R"({"action":"terminalAccess"})");
    told(4);
    EXPECT_EQ(screen->calls.lines().size(), 1U);
}

} // namespace
} // namespace kelvadrome::test
