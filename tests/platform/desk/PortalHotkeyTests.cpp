#include "Kelvadrome/platform/linux/desk/PortalHotkey.h"

#include "tests/platform/desk/FakePortal.h"

#include <gmock/gmock.h>

namespace kelvadrome::test {
namespace {

using testing::HasSubstr;

class PortalHotkeyTest : public PrivateBus {
protected:
    PortalHotkeyTest() {
        key.onPress = [this] { ++presses; };
        key.onRelease = [this] { ++releases; };
        key.onActivationToken = [this](const std::string& token) { tokens.push_back(token); };
        key.onChange = [this](HotkeyOutcome outcome) { changes.push_back(outcome); };
        key.onReturn = [this] { ++returns; };
    }
    std::unique_ptr<FakePortal> portal() { return std::make_unique<FakePortal>(connection(), bus->name()); }
    /// Time goes on by `step` seconds in each turn.
    HotkeyOutcome take(const char* label, double step = 0) {
        std::optional<HotkeyOutcome> outcome;
        asio::co_spawn(loop.executor(), key.registerKey(HotkeySpec::fromLabel(label).value()),
            [&](std::exception_ptr, HotkeyOutcome result) { outcome = result; });
        waitFor(
            [&] {
                clock->advance(step);
                return outcome.has_value();
            },
            "an outcome");
        return *outcome;
    }
    std::pair<int, int> counts(FakePortal& portal) {
        settle(portal.bus, *bus);
        return {presses, releases};
    }

    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    PortalHotkey key{bus, clock};
    int presses = 0, releases = 0, returns = 0;
    std::vector<std::string> tokens;
    std::vector<HotkeyOutcome> changes;
};

TEST_F(PortalHotkeyTest, theShortcutOfOurSessionPressesAndReleasesUntilThePortalEndsIt) {
    const auto desk = portal();
    EXPECT_EQ(take("Control Option Shift Command Space"), HotkeyOutcome::registered());
    EXPECT_THAT(desk->asked.back(), HasSubstr("'preferred_trigger': <'CTRL+ALT+SHIFT+LOGO+space'>"));
    EXPECT_EQ(take("Control B"), HotkeyOutcome::registered());
    EXPECT_THAT(desk->asked.back(), HasSubstr("'preferred_trigger': <'CTRL+b'>"));
    EXPECT_EQ(desk->closed, 1); // the one of before
    EXPECT_EQ(key.current(), HotkeySpec::fromLabel("Control B"));

    desk->key("Activated", "/org/freedesktop/portal/desktop/session/2");
    desk->key("Activated", FakePortal::session, "another");
    EXPECT_EQ(counts(*desk), std::pair(0, 0));
    for (const char* signal : {"Activated", "Activated", "Deactivated", "Deactivated", "Activated"})
        desk->key(signal);
    EXPECT_EQ(counts(*desk), std::pair(2, 1));
    desk->key("Activated", FakePortal::session, "command-bar", "{'activation_token': <'of a repeat'>}");
    desk->key("Deactivated");
    desk->key("Activated", FakePortal::session, "command-bar", "{'activation_token': <'token'>}");
    EXPECT_EQ(counts(*desk), std::pair(3, 2));
    EXPECT_EQ(tokens, std::vector<std::string>{"token"});
    EXPECT_TRUE(changes.empty());
    desk->endSession(); // while the key is down
    EXPECT_EQ(counts(*desk), std::pair(3, 3));
    EXPECT_EQ(key.current(), std::nullopt);
    EXPECT_EQ(changes, std::vector{HotkeyOutcome::failed(HotkeyStatus::takenBack)});
    desk->key("Activated");
    EXPECT_EQ(counts(*desk), std::pair(3, 3));
}

TEST_F(PortalHotkeyTest, whatThePortalRefusesOrNeverAnswersHasFailed) {
    EXPECT_EQ(take("Control B"), HotkeyOutcome::failed(HotkeyStatus::noPortal));
    auto desk = portal();
    waitFor([&] { return returns == 1; }, "a portal that came late");
    using Answer = std::optional<std::pair<guint32, std::string>>;
    const auto after = [&](const char* method, Answer answer, double step = 0) {
        const auto before = desk->answers;
        if (desk->answers.erase(method); answer)
            desk->answers[method] = *answer;
        const auto outcome = take("Control B", step);
        desk->answers = before;
        EXPECT_EQ(key.current(), std::nullopt);
        return outcome;
    };
    EXPECT_EQ(after("CreateSession", Answer({2, "{}"})), HotkeyOutcome::failed(2));
    EXPECT_EQ(after("CreateSession", Answer({0, "{}"})), HotkeyOutcome::failed(PortalAnswer::noPortal));
    EXPECT_EQ(after("CreateSession", {}, 1), HotkeyOutcome::failed(PortalAnswer::silent));
    EXPECT_EQ(after("BindShortcuts", Answer({1, "{}"})), HotkeyOutcome::failed(1));
    EXPECT_EQ(
        after("BindShortcuts", Answer({0, "{'shortcuts': <@a(sa{sv}) []>}"})), HotkeyOutcome::failed(1));
    EXPECT_EQ(after("BindShortcuts", {}, 1), HotkeyOutcome::failed(PortalAnswer::silent));
    settle(*bus, desk->bus);
    EXPECT_EQ(desk->closed, 3); // every session that was not for use

    EXPECT_EQ(take("Control B"), HotkeyOutcome::registered());
    desk.reset();
    waitFor([&] { return !changes.empty(); }, "the portal's end to be seen");
    EXPECT_EQ(changes, std::vector{HotkeyOutcome::failed(HotkeyStatus::noPortal)});
    EXPECT_EQ(key.current(), std::nullopt);
    desk = portal();
    waitFor([&] { return returns == 2; }, "the portal's return");
    EXPECT_EQ(after("BindShortcuts", Answer({1, "{}"})), HotkeyOutcome::failed(HotkeyStatus::refusedByUser));
    desk.reset();
    desk = portal();
    settle(*bus, desk->bus);
    EXPECT_EQ(returns, 2) << "a user who refused is left alone";
    desk->hang();
    EXPECT_EQ(take("Control B", 1), HotkeyOutcome::failed(PortalAnswer::silent));
}

} // namespace
} // namespace kelvadrome::test
