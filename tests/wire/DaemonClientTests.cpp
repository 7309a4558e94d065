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
    /// The method, path and body of each request so far.
    std::vector<std::string> asked() const {
        std::vector<std::string> lines;
        for (const auto& request : daemon.requests()) {
            lines.push_back(request.method + " " + request.path + " " + request.body);
        }
        return lines;
    }
};

const std::string loginLink = R"({"url":"http://127.0.0.1:1/login?t=x","expires_at":"e"})";

} // namespace

TEST(DaemonClient, eachCallAsksItsRouteAndReadsItsReply) {
    World world;
    auto& [daemon, loop, client] = world;
    world.answer("/v1/health", R"({"pid":7})");
    world.answer(
        "/v1/cards/list", R"({"cards":[{"id":"c","version":1,"kind":"k","title":"T","opened_at":"o"}]})");
    world.answer("/v1/board", R"({"topics":[{"id":"t"}]})");
    world.answer("/v1/receipts/list", R"({"receipts":[{"event_id":"e","action":"a","line":"l","ts":"s"}]})");
    world.answer("/v1/agents/status", R"({"sessions":[{"agent":"a","session_id":"s","status":"w"}]})");
    world.answer("/v1/inbox",
        R"({"counts":{"needs_you":1,"answered_by_rules_today":2,"agents_working":3,"verified_today":4}})");
    world.answer("/v1/onboarding/status", R"({"completed":true})");
    world.answer("/v1/else", "[]");

    EXPECT_EQ(loop.run(client.health(3)).pid, 7);
    EXPECT_EQ(loop.run(client.cards()).at(0).id, "c");
    EXPECT_EQ(loop.run(client.board()).at(0).id, "t");
    EXPECT_EQ(loop.run(client.receipts(200)).at(0).eventId, "e");
    EXPECT_EQ(loop.run(client.agentsStatus()).value().sessions.at(0).sessionId, "s");
    EXPECT_EQ(loop.run(client.inboxCounts()).value().verifiedToday, 4);
    EXPECT_EQ(loop.run(client.onboardingStatus(2)).completed, true);
    loop.run(client.post<AnyDecodable>("/v1/else", {{"text", "\xC3\xA9\""}, {"n", 1}}, 5));
    EXPECT_EQ(world.asked(),
        (std::vector<std::string>{"GET /v1/health ", "POST /v1/cards/list {}", "POST /v1/board {}",
            "POST /v1/receipts/list {\"limit\":200}", "POST /v1/agents/status {}", "POST /v1/inbox {}",
            "POST /v1/onboarding/status {}", "POST /v1/else {\"text\":\"\xC3\xA9\\\"\",\"n\":1}"}));
    EXPECT_EQ(daemon.requests().back().headers.at("content-type"), "application/json");
}

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
    daemon.stop();
    EXPECT_TRUE(outcomeOf([&] { return client.agentsStatus(); }).starts_with("connect failed"));
}

TEST(DaemonClient, aLoginIsMintedWithAndWithoutAPageKey) {
    World world;
    auto& [daemon, loop, client] = world;
    world.answer("/v1/page/token", loginLink);
    EXPECT_EQ(loop.run(client.mintLogin(std::nullopt)).expiresAt, "e");
    EXPECT_FALSE(daemon.requests().at(0).headers.contains("x-kd-page-key"));
    // Without a route for the claim, then with one that registers nothing.
    loop.run(client.mintLogin("key"));
    world.answer("/v1/page/claim", R"({"registered":false})");
    loop.run(client.mintLogin("key"));
    EXPECT_EQ(world.asked(),
        (std::vector<std::string>{"POST /v1/page/token {}", "POST /v1/page/claim {\"key\":\"key\"}",
            "POST /v1/page/token {}", "POST /v1/page/claim {\"key\":\"key\"}", "POST /v1/page/token {}"}));
    for (const auto at : {2, 4})
        EXPECT_EQ(daemon.requests().at(at).headers.at("x-kd-page-key"), "key");
}

TEST(DaemonClient, mintingFailsAtEitherStep) {
    World world;
    auto& [daemon, loop, client] = world;
    const auto mint = [&] { return said([&] { loop.run(client.mintLogin("key")); }); };
    EXPECT_EQ(mint(), "not_found: no such route"); // the claim's is ignored, the token's is not
    world.answer("/v1/page/token", R"({"url":"u"})");
    EXPECT_EQ(mint(), "data.expires_at is missing");
    const auto before = daemon.requests("/v1/page/token").size();
    world.refuse("/v1/page/claim", "forbidden");
    EXPECT_EQ(mint(), "forbidden: no");
    world.answer("/v1/page/claim", "{}");
    EXPECT_EQ(mint(), "data.registered is missing");
    daemon.on("/v1/page/claim", FakeReply::raw("HTTP/1.1 200"));
    EXPECT_EQ(mint(), "malformed response: no header end");
    EXPECT_EQ(daemon.requests("/v1/page/token").size(), before);
}
