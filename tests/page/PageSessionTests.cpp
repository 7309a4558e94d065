#include "Kelvadrome/platform/linux/CurlHTTP.h"
#include "KelvadromeKit/page/MintLogin.h"
#include "KelvadromeKit/page/PageKey.h"
#include "KelvadromeKit/page/PageSession.h"

#include "tests/support/FakeDaemon.h"
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
        session =
            std::make_shared<PageSession>(loop.executor(), std::make_shared<CurlHTTP>(loop.pool()), [this] {
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

TEST(MintLogin, aForeignKeyIsToldOnceAndThrownEachTime) {
    TestLoop loop;
    FakeDaemon daemon;
    daemon.on("/v1/page/claim", FakeReply::failure("conflict", "another key", 409));
    auto told = std::make_shared<std::vector<std::string>>();
    const auto store = std::make_shared<MemorySecretStore>();
    const auto mint = mintLogin(DaemonClient(UnixSocketTransport(daemon.socketPath(), loop.pool())), store,
        "/the/home", loop.pool(), loop.executor(),
        [told](std::string title, std::string text, std::string button) -> Task<> {
            told->insert(told->end(), {title, text, button});
            return []() -> Task<> { co_return; }();
        });
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(loop.run(mint()), DaemonError);
    EXPECT_FALSE(store->exists()) << "a refused key would stand in for the right one for good";
    ASSERT_EQ(told->size(), 3U);
    EXPECT_TRUE(told->at(1).contains("move page-key.sha256 out of /the/home")) << told->at(1);
    daemon.on("/v1/page/claim", FakeReply::failure("not_found", "old daemon", 404));
    daemon.on("/v1/page/token", FakeReply::data(R"({"url":"http://127.0.0.1:1/x","expires_at":"later"})"));
    EXPECT_EQ(loop.run(mint()).url, "http://127.0.0.1:1/x");
    const auto key = daemon.requests("/v1/page/token").at(0).headers.at("x-kd-page-key");
    EXPECT_EQ(store->read(), key);
    daemon.on("/v1/page/claim", FakeReply::failure("conflict", "another key", 409));
    EXPECT_THROW(loop.run(mint()), DaemonError);
    EXPECT_EQ(store->read(), key) << "a key that was there before stays";
}

namespace {

/// A store in which readers go on two by two: one alone waits for another, or until a moment has passed.
class SlowStore final : public SecretStore {
public:
    void set(const std::string& value) override { kept_.set(value); }
    std::optional<std::string> read() override {
        auto found = kept_.read();
        std::unique_lock guard(lock_);
        const int pair = (++readers_ + 1) / 2 * 2;
        came_.notify_all();
        came_.wait_for(guard, std::chrono::milliseconds(100), [&] { return readers_ >= pair; });
        return found;
    }
    bool exists() override { return kept_.exists(); }
    void remove() override { kept_.remove(); }

private:
    MemorySecretStore kept_;
    std::mutex lock_;
    std::condition_variable came_;
    int readers_ = 0;
};

} // namespace

TEST(MintLogin, twoFirstMintsAtOnceMakeOneKey) {
    TestLoop loop;
    FakeDaemon daemon;
    daemon.on("/v1/page/claim", FakeReply::data(R"({"registered":true})"));
    daemon.on("/v1/page/token", FakeReply::data(R"({"url":"http://127.0.0.1:1/x","expires_at":"later"})"));
    const auto mint = mintLogin(DaemonClient(UnixSocketTransport(daemon.socketPath(), loop.pool())),
        std::make_shared<SlowStore>(), "/the/home", loop.pool(), loop.executor(), {});
    loop.run(gather(mint(), mint()));
    const auto asked = daemon.requests("/v1/page/token");
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0].headers.at("x-kd-page-key"), asked[1].headers.at("x-kd-page-key"));
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
