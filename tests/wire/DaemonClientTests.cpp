#include "KelvadromeKit/wire/DaemonClient.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/TestLoop.h"
#include "tests/wire/Said.h"

#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

struct World {
    FakeDaemon daemon;
    TestLoop loop;
    DaemonClient client{daemon.socketPath(), loop.pool()};

    void answer(const std::string& path, const std::string& data) { daemon.on(path, FakeReply::data(data)); }
    void refuse(const std::string& path, const std::string& code) {
        daemon.on(path, FakeReply::failure(code, "no", 400));
    }
};

} // namespace

TEST(DaemonClient, aCallOutlivesTheClientThatMadeIt) {
    World world;
    world.answer("/v1/board", R"({"topics":[]})");
    std::optional<DaemonClient> gone(world.client);
    auto board = gone->board();
    gone.reset();
    EXPECT_TRUE(world.loop.run(std::move(board)).empty());
}

TEST(DaemonClient, onlyAnOlderDaemonsRefusalsPassQuietly) {
    World world;
    auto& [daemon, loop, client] = world;
    const auto outcomeOf = [&](auto call) {
        bool present = false;
        const auto error = said([&] { present = loop.run(call()).has_value(); });
        return error.empty() ? (present ? "present" : "absent") : error;
    };
    struct Row {
        std::string code, agents, inbox;
    };
    const Row rows[] = {
        {"not_implemented", "absent", "absent"},
        {"validation_failed", "validation_failed: no", "absent"},
        {"internal", "internal: no", "internal: no"},
    };
    for (const auto& row : rows) {
        world.refuse("/v1/agents/status", row.code);
        world.refuse("/v1/inbox", row.code);
        EXPECT_EQ(outcomeOf([&] { return client.agentsStatus(); }), row.agents) << row.code;
        EXPECT_EQ(outcomeOf([&] { return client.inboxCounts(); }), row.inbox) << row.code;
    }
    world.answer("/v1/cards/list", R"({"cards":[{"id":"c"}]})");
    EXPECT_EQ(said([&] { loop.run(client.cards()); }), "data.cards[0].version is missing");
}

TEST(DaemonClient, mintingFailsAtEitherStep) {
    World world;
    auto& [daemon, loop, client] = world;
    const auto mint = [&] { return said([&] { loop.run(client.mintLogin("key")); }); };
    EXPECT_EQ(mint(), "not_found: no such route"); // the claim's is ignored, the token's is not
    world.answer("/v1/page/token", R"({"url":"u"})");
    const auto before = daemon.requests("/v1/page/token").size();
    world.refuse("/v1/page/claim", "forbidden");
    EXPECT_EQ(mint(), "forbidden: no");
    daemon.on("/v1/page/claim", FakeReply::raw("HTTP/1.1 200"));
    EXPECT_EQ(mint(), "malformed response: no header end");
    EXPECT_EQ(daemon.requests("/v1/page/token").size(), before);
}
