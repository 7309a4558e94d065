#include "Kelvadrome/platform/linux/core/CurlHTTP.h"
#include "Kelvadrome/platform/linux/core/LinuxPeers.h"
#include "KelvadromeKit/page/PageKey.h"
#include "KelvadromeKit/page/PageSession.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/Squatter.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

/// A daemon with its page on a real port, and a session that logs in to it.
class PageSessionTest : public testing::Test {
protected:
    PageSessionTest() {
        port = daemon.listenOnTCP();
        link = fmt::format("http://127.0.0.1:{}/login?t=once&surface=other", port);
        login({{"Set-Cookie", "kd_session=a%20b; Path=/; HttpOnly"}, {"Set-Cookie", "other=1"},
            {"Location", "/"}});
        daemon.on("/v1/page/me", FakeReply::data(R"({"csrf":"token"})"));
        daemon.on("/v1/cards/answer", FakeReply::data(R"({"receipt":{"line":"Answered"},"status":"held"})"));
        session = std::make_shared<PageSession>(loop.executor(), http, [this] {
            ++mints;
            return mint(link);
        });
    }

    static Task<LoginLink> mint(std::string url) { co_return LoginLink{std::move(url), ""}; }

    void login(std::vector<std::pair<std::string, std::string>> headers, std::int64_t status = 303) {
        daemon.on("/login", FakeReply{.status = status, .headers = std::move(headers)});
    }

    PageSession::Failure::Kind failure() {
        try {
            loop.run(session->ensure());
        } catch (const PageSession::Failure& error) {
            return error.kind();
        }
        throw std::runtime_error("the login succeeded");
    }

    TestLoop loop;
    FakeDaemon daemon;
    std::shared_ptr<CurlHTTP> http = std::make_shared<CurlHTTP>(
        loop.pool(), std::make_shared<LinuxPeers>(UnixSocketTransport(daemon.socketPath(), loop.pool())));
    std::uint16_t port = 0;
    std::string link;
    int mints = 0;
    std::shared_ptr<PageSession> session;
};

using Kind = PageSession::Failure::Kind;

} // namespace

TEST_F(PageSessionTest, aLoginTakesTheLinkOnceAndKeepsItsCookieAndToken) {
    EXPECT_FALSE(loop.run(session->current()));
    const auto credentials = loop.run(session->ensure());
    EXPECT_EQ(credentials.base, fmt::format("http://127.0.0.1:{}", port));
    EXPECT_EQ(credentials.cookieValue, "a b");
    EXPECT_EQ(credentials.csrf, "token");
    EXPECT_EQ(loop.run(session->ensure()), credentials);
    EXPECT_EQ(mints, 1);
    ASSERT_EQ(daemon.requests("/login").size(), 1u);
    EXPECT_EQ(daemon.requests("/login")[0].query, "t=once&surface=mac");
    EXPECT_EQ(daemon.requests("/v1/page/me")[0].headers.at("cookie"), "kd_session=a b");
    EXPECT_TRUE(daemon.requests("/").empty()); // the redirect is not followed
}

TEST_F(PageSessionTest, aPostCarriesCookieAndTokenAndReadsTheReceipt) {
    const auto receipt = loop.run(session->acceptDefaults("c1", 7, {{"q", "yes"}}));
    EXPECT_EQ(receipt, (PageSession::ReceiptOut{"Answered", "held"}));
    const auto request = daemon.requests("/v1/cards/answer").at(0);
    EXPECT_EQ(request.headers.at("cookie"), "kd_session=a%20b");
    EXPECT_EQ(request.headers.at("x-kd-csrf"), "token");
    EXPECT_EQ(request.headers.at("content-type"), "application/json");
    EXPECT_EQ(boost::json::parse(request.body),
        boost::json::parse(
            R"({"card_id":"c1","version":7,"answer":{"q":"yes"},"accept_all_defaults":true})"));
}

TEST_F(PageSessionTest, anUnauthorizedPostLogsInAnewOnceAndOtherRefusalsDoNot) {
    const auto refusals = std::make_shared<int>(1);
    daemon.on("/v1/cards/answer", [refusals](const FakeRequest&) {
        return (*refusals)-- > 0 ? FakeReply::failure("unauthorized", "no", 401) : FakeReply::data("{}");
    });
    loop.run(session->answer("c", 1, "yes"));
    EXPECT_EQ(mints, 2);
    *refusals = 2;
    EXPECT_THROW(loop.run(session->answer("c", 1, "yes")), DaemonError);
    EXPECT_EQ(mints, 3);
    daemon.on("/v1/cards/answer", FakeReply::failure("conflict", "no", 401));
    EXPECT_THROW(loop.run(session->answer("c", 1, "yes")), DaemonError);
    EXPECT_EQ(mints, 3);
}

TEST_F(PageSessionTest, whoeverTakesThePortAfterTheDaemonGetsNothing) {
    for (const auto user : {Squatter::User::own, Squatter::User::other}) {
        if (!Squatter::canBe(user))
            continue;
        FakeDaemon mortal(daemon.socketPath() + "2");
        const auto held = std::make_shared<PageSession>(loop.executor(),
            std::make_shared<CurlHTTP>(loop.pool(),
                std::make_shared<LinuxPeers>(UnixSocketTransport(mortal.socketPath(), loop.pool()))),
            [this] {
                ++mints;
                return mint(link);
            });
        mints = 0;
        const auto old = mortal.listenOnTCP();
        link = fmt::format("http://127.0.0.1:{}/login?t=once", old);
        mortal.on("/login", FakeReply{.status = 303, .headers = {{"Set-Cookie", "kd_session=x"}}});
        mortal.on("/v1/page/me", FakeReply::data(R"({"csrf":"token"})"));
        loop.run(held->ensure());
        mortal.stop();
        Squatter squatter(user, old);
        EXPECT_THROW(loop.run(held->answer("c", 1, "yes")), NotConnected);
        EXPECT_FALSE(loop.run(held->current())) << "the session of a daemon that is gone is still held";
        // Nor when the daemon is back elsewhere: not the old session, and not a login link for that port.
        FakeDaemon back(mortal.socketPath());
        EXPECT_THROW(loop.run(held->answer("c", 1, "yes")), NotConnected);
        EXPECT_EQ(mints, 2);
        loop.until([&] { return squatter.taken().size() >= 2; }, "both connections");
        EXPECT_EQ(squatter.taken(), "++");
    }
}

TEST_F(PageSessionTest, aPortThatNobodyListensOnEndsTheSessionAndALateReplyDoesNot) {
    loop.run(session->ensure());
    daemon.on("/v1/cards/answer", FakeReply::raw(""));
    EXPECT_THROW(loop.run(session->answer("c", 1, "yes")), std::runtime_error);
    EXPECT_TRUE(loop.run(session->current()));
    daemon.stop();
    EXPECT_THROW(loop.run(session->answer("c", 1, "yes")), NotConnected);
    EXPECT_FALSE(loop.run(session->current()));
}

TEST_F(PageSessionTest, aLoginFailsAtEachOfItsStepsInItsOwnWay) {
    for (const auto* bad : {"http://localhost:{}/login?t=1", "https://127.0.0.1/login", "nonsense {}",
             "http://127.0.0.2:{}/x", "http://127.0.0.1@evil.example:{}/login"}) {
        link = fmt::format(fmt::runtime(bad), port);
        EXPECT_EQ(failure(), Kind::badLoginURL) << link;
    }
    EXPECT_EQ(daemon.connections(), 0u);
    link = fmt::format("http://127.0.0.1:{}/login?t=once", port);
    login({}, 401);
    EXPECT_EQ(failure(), Kind::loginRefused);
    login({{"Set-Cookie", "my_kd_session=1"}});
    EXPECT_EQ(failure(), Kind::noCookie);
    login({{"Set-Cookie", "kd_session=x"}}, 200);
    daemon.on("/v1/page/me", FakeReply::failure("forbidden", "no", 403));
    EXPECT_THROW(loop.run(session->ensure()), DaemonError);
    daemon.on("/v1/page/me", FakeReply::data(R"({"csrf":"t"})"));
    EXPECT_EQ(loop.run(session->ensure()).csrf, "t");
}

TEST(MovedSecretStore, theSecretIsFoundAtItsOldPlaceAndFromThenOnAtTheNewOne) {
    const auto now = std::make_shared<MemorySecretStore>(), before = std::make_shared<MemorySecretStore>();
    MovedSecretStore moved(now, before);
    EXPECT_EQ(moved.read(), std::nullopt);
    before->set("old");
    EXPECT_TRUE(moved.exists());
    EXPECT_EQ(moved.read(), "old");
    EXPECT_EQ(now->read(), "old");
    before->set("stale");
    EXPECT_EQ(moved.read(), "old");
    moved.remove();
    EXPECT_FALSE(before->exists() || now->exists());
}

TEST(SecretField, aStoredSecretIsNeverLoadedAndAFailedSaveKeepsTheText) {
    MemorySecretStore store;
    SecretField field{"typed", false, std::nullopt};
    field.save(store);
    EXPECT_EQ(field, (SecretField{"", true, "Key saved"}));
    field.text = "  ";
    field.save(store);
    EXPECT_EQ(field, (SecretField{"  ", true, "The key was not saved."}));
    SecretField fresh{"left over", false, std::nullopt};
    fresh.load(store);
    EXPECT_EQ(fresh, (SecretField{"", true, std::nullopt}));
    EXPECT_EQ(store.reads(), 0);
    fresh.remove(store);
    EXPECT_EQ(fresh, (SecretField{"", false, "Key removed"}));
}

TEST(PageKey, aShortKeyIsReplacedAndAWholeOneKept) {
    MemorySecretStore store;
    const auto made = PageKey::load(store);
    EXPECT_EQ(made.size(), 43u);
    EXPECT_EQ(made.find_first_of("+/="), std::string::npos);
    EXPECT_EQ(PageKey::load(store), made);
    store.set(std::string(42, 'x'));
    EXPECT_EQ(PageKey::load(store).size(), 43u);
    store.set(std::string(43, 'x'));
    EXPECT_EQ(PageKey::load(store), std::string(43, 'x'));
}

TEST(PageKey, anAccountIsTheHashOfTheHome) {
    // The digest of "abc" begins with these 8 bytes (FIPS 180-2, appendix B.1).
    EXPECT_EQ(PageKey::account("abc"), "root-ba7816bf8f01cfea");
}
