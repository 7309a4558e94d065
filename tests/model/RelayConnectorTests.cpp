#include "Kelvadrome/model/RelayConnector.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/ScriptedLauncher.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace kelvadrome::test {
namespace {

/// A connector beside a daemon that says whether it is wanted.
class RelayConnectorTest : public testing::Test {
protected:
    ~RelayConnectorTest() override { clock->letGo(); }

    void ask(bool enabled) {
        daemon.on("/v1/relay/status",
            FakeReply::data(fmt::format(
                R"({{"enabled":{},"connector":{{"connected":false}},"devices":[],"relay_url":"","app_url":""}})",
                enabled)));
        loop.run(connector->startIfEnabled());
    }
    ScriptedChild& child() { return *launcher->children.back(); }
    std::size_t launched() const { return launcher->commands.size(); }
    /// The child ends; gives the seconds until the next start, negative when none is to come.
    double pauseAfterEnd() {
        child().tellEnd(1);
        loop.drain();
        return clock->untilNext();
    }
    void waitOut() {
        clock->advance(clock->untilNext());
        loop.drain();
    }

    TestLoop loop;
    FakeDaemon daemon;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<ScriptedLauncher> launcher = std::make_shared<ScriptedLauncher>();
    bool shipped = true;
    std::shared_ptr<RelayConnector> connector = RelayConnector::make({.executor = loop.executor(),
        .clock = clock,
        .client = DaemonClient(daemon.socketPath(), loop.pool()),
        .env = DaemonEnvironment("/h", std::nullopt, "/r"),
        .environment = {{"HOME", "/u"}, {"PATH", "/bin"}},
        .launcher = launcher,
        .isExecutable = [](const std::string& path) { return path == "/r/node/bin/node"; },
        .exists = [this](const std::string&) { return shipped; }});
};

TEST_F(RelayConnectorTest, itRunsOnceAndUnheardWhileTheRelayIsOn) {
    loop.run(connector->startIfEnabled()); // a daemon that doesn't know the relay changes nothing
    EXPECT_EQ(launched(), 0U);
    ask(true);
    ask(true);
    ASSERT_EQ(launched(), 1U);
    EXPECT_EQ(launcher->commands[0].executable, "/r/node/bin/node");
    EXPECT_EQ(launcher->commands[0].arguments.at(3), "/h/kelvadromed.sock");
    EXPECT_FALSE(launcher->commands[0].environment.contains("PATH"));
    EXPECT_TRUE(launcher->commands[0].silent);

    ask(false);
    EXPECT_EQ(child().asked, std::vector<std::string>{"terminate"});
    EXPECT_LT(pauseAfterEnd(), 0) << "its end starts nothing";
}

TEST_F(RelayConnectorTest, eachEndIsWaitedOutLongerUntilAStopForgetsThem) {
    ask(true);
    for (const double pause : {2, 4, 8, 16, 30, 30}) {
        EXPECT_EQ(pauseAfterEnd(), pause);
        waitOut();
    }
    EXPECT_EQ(launched(), 7U);
    ask(false);
    ask(true);
    EXPECT_EQ(pauseAfterEnd(), 2);
}

TEST_F(RelayConnectorTest, whatAStopOvertakesStartsNothing) {
    ask(true);
    pauseAfterEnd();
    connector->stop(); // within the pause, as at the program's end
    loop.drain();
    clock->advance(60);
    loop.drain();
    EXPECT_EQ(launched(), 1U);

    ask(true);
    auto& old = child();
    connector->stop();
    ask(true); // on again before the old one has ended
    ASSERT_EQ(launched(), 3U);
    old.tellEnd(0);
    loop.drain();
    clock->advance(60);
    ask(true);
    EXPECT_EQ(launched(), 3U) << "the end of the old one is not that of the new one";

    const auto gate = std::make_shared<FakeGate>();
    daemon.on("/v1/relay/status",
        FakeReply::data(
            R"({"enabled":true,"connector":{"connected":false},"devices":[],"relay_url":"","app_url":""})")
            .heldBy(gate));
    const auto asked = daemon.requests().size();
    loop.run(connector->startIfEnabled(), [&] {
        if (daemon.requests().size() == asked || gate->isOpen())
            return;
        connector->stop();
        gate->open();
    });
    EXPECT_EQ(launched(), 3U) << "the answer came after the stop";
}

TEST_F(RelayConnectorTest, itSaysWhyItDoesNotRunAndTriesAgainWhenAsked) {
    shipped = false;
    ask(true);
    EXPECT_EQ(connector->lastError(), "The relay connector is missing from this build.");
    shipped = true;
    launcher->failure = EACCES;
    ask(true);
    EXPECT_EQ(connector->lastError(), "The relay connector did not start.");
    EXPECT_LT(clock->untilNext(), 0) << "no restart is to come";
    launcher->failure.reset();
    ask(true);
    EXPECT_EQ(launched(), 1U);
    EXPECT_EQ(connector->lastError(), std::nullopt);
}

} // namespace
} // namespace kelvadrome::test
