#include "Kelvadrome/model/DevicesRows.h"
#include "Kelvadrome/model/DevicesSettings.h"
#include "KelvadromeKit/support/ISO8601.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace kelvadrome::test {
namespace {

class MemoryPasteboard final : public Pasteboard {
public:
    Task<std::optional<std::string>> read() override {
        ++reads;
        co_return text;
    }
    void writeSecret(std::string secret) override { text = std::move(secret); }
    void clear() override { text.reset(); }

    std::optional<std::string> text;
    int reads = 0;
};

class CountingConnector final : public RelayConnecting {
public:
    Task<> startIfEnabled() override {
        ++starts;
        co_return;
    }
    void stop() override { ++stops; }
    std::optional<std::string> lastError() const override { return std::nullopt; }

    int starts = 0, stops = 0;
};

/// The settings beside a daemon whose words the test chooses.
class Devices : public testing::Test {
protected:
    ~Devices() override { clock->letGo(); }

    static std::string status(const std::string& more = "", bool enabled = true) {
        return fmt::format(R"({{"enabled":{},"connector":{{"connected":true}},"relay_url":"r","app_url":"a",
            "devices":[{{"id":"d","name":"","kind":"iphone","fingerprint":"F","face_id":false,"paired_at":"t"}}]{}}})",
            enabled, more);
    }
    std::string attempt(
        const std::string& state, double secondsLeft = 100, const std::string& id = "p") const {
        return fmt::format(R"(,"pairing":{{"id":"{}","state":"{}","expires_at":"{}","fingerprint":"K"}})", id,
            state, formatISO8601(clock->now() + seconds(secondsLeft)));
    }
    void tells(const std::string& json) { daemon.on("/v1/relay/status", FakeReply::data(json)); }
    void untilIdle() {
        loop.until([&] { return !devices->state().busy; }, "the action to end");
    }
    void untilState(const std::string& wanted) {
        loop.until([&] { return devices->state().pairingState() == wanted; }, "the state " + wanted);
    }
    void begin() {
        daemon.on("/v1/relay/pair/start",
            FakeReply::data(fmt::format(R"({{"pairing_id":"p","url":"https://x/#secret","expires_at":"{}"}})",
                formatISO8601(clock->now() + seconds(100)))));
        tells(status(attempt("waiting")));
        devices->look();
        devices->startPairing();
        untilIdle();
    }
    /// Another second passes, in which the daemon tells this.
    void tick(const std::string& json) {
        tells(json);
        const auto before = daemon.requests("/v1/relay/status").size();
        loop.until([&] { return clock->sleepers() > 0; }, "the tick to wait");
        clock->advance(1);
        loop.until([&] { return daemon.requests("/v1/relay/status").size() > before; }, "the next question");
    }
    /// All that the pane says, and its buttons that can be pressed.
    std::vector<std::string> shown(bool buttons = false) const {
        std::vector<std::string> words;
        for (const auto& group : devicesPane(devices->state())) {
            for (const auto& row : group.rows) {
                if (!buttons)
                    std::ranges::copy(
                        std::array{row.title, row.detail, row.value}, std::back_inserter(words));
                else if (const auto* press = std::get_if<SettingsRow::Press>(&row.control);
                         press && row.enabled)
                    words.push_back(press->words);
                else if (const auto* presses = std::get_if<SettingsRow::Presses>(&row.control)) {
                    for (const auto& one : presses->buttons) {
                        if (one.enabled && row.enabled)
                            words.push_back(one.words);
                    }
                }
            }
        }
        return words;
    }
    bool shows(const std::string& words) const { return std::ranges::count(shown(), words) > 0; }
    bool offers(const std::string& button) const { return std::ranges::count(shown(true), button) > 0; }

    TestLoop loop;
    FakeDaemon daemon;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<MemoryPasteboard> pasteboard = std::make_shared<MemoryPasteboard>();
    std::shared_ptr<CountingConnector> connector = std::make_shared<CountingConnector>();
    std::vector<std::string> questions;
    bool agrees = true;
    std::shared_ptr<DevicesSettings> devices = DevicesSettings::make({.executor = loop.executor(),
        .clock = clock,
        .client = DaemonClient(daemon.socketPath(), loop.pool()),
        .connector = connector,
        .pasteboard = pasteboard,
        .confirm = [this](DevicesSettings::Question question) { return answer(this, question.title); }});

private:
    static Task<bool> answer(Devices* self, std::string title) {
        self->questions.push_back(std::move(title));
        co_return self->agrees;
    }
};

TEST_F(Devices, thePaneFollowsAnAttemptFromTheCodeToThePhone) {
    begin();
    EXPECT_TRUE(devices->state().qr);
    EXPECT_TRUE(shows("Valid 100 s, 1 phone."));
    tick(status(attempt("joined")));
    untilState("joined");
    EXPECT_TRUE(shows("A phone wants to pair."));
    EXPECT_TRUE(shows("Phone key K"));
    devices->type("12 34-5");
    EXPECT_FALSE(offers("Allow"));
    devices->decide(true);
    EXPECT_FALSE(devices->state().busy) << "not with five digits";
    devices->type("12 34-5678");
    EXPECT_TRUE(offers("Allow"));

    daemon.on("/v1/relay/pair/decide", FakeReply::failure("wrong_code", "2 tries left.", 409));
    devices->decide(true);
    untilIdle();
    EXPECT_TRUE(shows("2 tries left."));
    EXPECT_EQ(devices->state().typedCode, "123456");
    daemon.on("/v1/relay/pair/decide", FakeReply::data(status(attempt("confirmed"))));
    devices->decide(true);
    EXPECT_FALSE(offers("Decline")) << "one action at a time";
    untilIdle();
    EXPECT_EQ(daemon.requests("/v1/relay/pair/decide").back().body,
        R"({"pairing_id":"p","allow":true,"code":"123456"})");
    EXPECT_TRUE(shows("Paired. The phone shows your Inbox now."));
    EXPECT_FALSE(devices->state().qr || devices->state().pairing || devices->state().error);
    EXPECT_EQ(devices->state().typedCode, "");
}

TEST_F(Devices, aCodeThatTheDaemonKnowsNoMoreLeavesTheScreen) {
    for (const auto& told : {status(), status(attempt("waiting", 100, "another's"))}) {
        begin();
        EXPECT_TRUE(shows("Pairing QR code"));
        tick(told);
        loop.until([&] { return !shows("Pairing QR code"); }, "the code to go");
        EXPECT_FALSE(offers("Copy the code"));
        EXPECT_FALSE(devices->state().qr);
    }
    EXPECT_TRUE(offers("New code"));
    EXPECT_TRUE(shows("Another window shows its QR code."));
}

TEST_F(Devices, eachStateHasItsWords) {
    devices->look();
    const std::pair<const char*, const char*> all[] = {{"declined", "Declined. That phone was not added."},
        {"failed", "Pairing failed. Start again."}, {"expired", "The code expired."}};
    for (const auto& [state, words] : all) {
        tick(status(attempt(state)));
        untilState(state);
        EXPECT_TRUE(shows(words));
    }
    EXPECT_TRUE(offers("New code"));
    tick(status(attempt("waiting", -5.5)));
    untilState("waiting");
    EXPECT_TRUE(shows("Valid 0 s, 1 phone."));
    EXPECT_FALSE(offers("Copy the code")) << "the attempt is another window's";
    tick(status());
    loop.until([&] { return offers("Pair a phone"); }, "no attempt");
    EXPECT_TRUE(shows("No Face ID: high risk stays on the Mac"));
}

TEST_F(Devices, aReplyThatCameLateOrBrokenChangesNothing) {
    bool heard = false;
    const auto watching = devices->observe([&] { heard = true; });
    tells(R"({"enabled":true})"); // without devices: no status at all
    devices->look();
    loop.until([&] { return heard; }, "the broken reply");
    EXPECT_FALSE(devices->state().status || devices->state().error);

    begin();
    tick(status(attempt("joined")));
    untilState("joined");
    const auto gate = std::make_shared<FakeGate>();
    const auto before = daemon.requests("/v1/relay/status").size();
    daemon.on("/v1/relay/status", FakeReply::data(status(attempt("joined"))).heldBy(gate));
    devices->look();
    loop.until([&] { return daemon.requests("/v1/relay/status").size() > before; }, "a question on its way");
    daemon.on("/v1/relay/pair/decide", FakeReply::data(status(attempt("declined"))));
    devices->decide(false);
    untilIdle();
    loop.drain();
    heard = false;
    gate->open();
    loop.until([&] { return heard; }, "the late reply");
    EXPECT_EQ(devices->state().pairingState(), "declined");
}

TEST_F(Devices, aCopiedLinkLeavesThePasteboardWithItsAttempt) {
    for (const bool another : {false, true}) {
        begin();
        devices->copy();
        EXPECT_EQ(pasteboard->text, "https://x/#secret");
        EXPECT_TRUE(offers("Copied"));
        loop.drain();
        devices->lookAway(); // it is watched all the same
        tick(status(attempt("waiting")));
        tick(status(attempt("waiting")));
        loop.until([&] { return offers("Copy the code"); }, "the button's own words");
        EXPECT_EQ(pasteboard->reads, another ? 1 : 0) << "it isn't read without a need";
        if (another)
            pasteboard->text = "my own";
        tick(status(attempt("expired")));
        loop.until([&] { return !devices->state().copiedCode; }, "the link to be let go");
        EXPECT_EQ(pasteboard->text, another ? std::optional<std::string>("my own") : std::nullopt);
    }
    clock->advance(1);
    loop.drain();
    EXPECT_EQ(clock->sleepers(), 0U) << "nobody looks, so nobody asks";
}

TEST_F(Devices, switchingAndUnpairingAskTheDaemonAndItsRefusalIsShown) {
    tells(status("", false));
    devices->look();
    loop.until([&] { return devices->state().status.has_value(); }, "the first status");
    EXPECT_FALSE(offers("Pair a phone"));
    daemon.on("/v1/relay/enable", FakeReply::failure("conflict", "No relay is set up.", 409));
    devices->setEnabled(true);
    untilIdle();
    EXPECT_TRUE(shows("No relay is set up."));
    EXPECT_EQ(connector->starts, 0);
    for (const bool on : {true, false}) {
        daemon.on("/v1/relay/enable", FakeReply::data(status("", on)));
        devices->setEnabled(on);
        untilIdle();
        EXPECT_EQ(devices->state().status->enabled, on);
    }
    EXPECT_EQ(connector->starts, 1);
    EXPECT_EQ(connector->stops, 1);

    agrees = false;
    devices->revoke("d");
    loop.until([&] { return !devices->state().confirmUnpair; }, "the answer");
    EXPECT_EQ(questions, std::vector<std::string>{"Unpair this phone?"});
    agrees = true;
    daemon.stop();
    devices->revoke("d");
    loop.until([&] { return devices->state().error.has_value() && !devices->state().busy; }, "the failure");
    EXPECT_TRUE(shows("kelvadrome could not reach its daemon."));
    EXPECT_FALSE(devices->state().status->devices.empty());
}

} // namespace
} // namespace kelvadrome::test
