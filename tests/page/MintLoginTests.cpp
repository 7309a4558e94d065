#include "KelvadromeKit/daemon/DaemonEnvironment.h"
#include "KelvadromeKit/page/MintLogin.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <sys/stat.h>

namespace kelvadrome::test {
namespace {

/// A home with a daemon that knows one page key: the first that it is told, or one of before.
class MintLoginTest : public testing::Test {
protected:
    MintLoginTest() {
        daemon.on("/v1/page/claim", [this](const FakeRequest& request) {
            const auto key = readJSON(request.body,
                [](const JSONValue& root) { return root.object().required<std::string>("key"); });
            std::lock_guard guard(lock);
            if (registered.empty())
                registered = key;
            return registered == key ? FakeReply::data(R"({"registered":true})")
                                     : FakeReply::failure("conflict", "another key", 409);
        });
        daemon.on("/v1/page/token", [this](const FakeRequest& request) {
            const auto key = request.headers.find("x-kd-page-key");
            std::lock_guard guard(lock);
            if (!registered.empty() && (key == request.headers.end() || key->second != registered))
                return FakeReply::failure("forbidden", "no", 403);
            return FakeReply::data(R"({"url":"http://127.0.0.1:1/x","expires_at":"later"})");
        });
        mint = mintFrom(store);
    }

    PageSession::Mint mintFrom(std::shared_ptr<SecretStore> from) {
        return mintLogin(DaemonClient(UnixSocketTransport(daemon.socketPath(), loop.pool())), std::move(from),
            home, loop.pool(), loop.executor(),
            [told = told](std::string title, std::string text, std::string button) {
                told->insert(told->end(), {std::move(title), std::move(text), std::move(button)});
                return []() -> Task<> { co_return; }();
            });
    }

    TestLoop loop;
    TemporaryFolder folder;
    std::string home = folder / "home";
    FakeDaemon daemon{(Files::makeFolders(home, 0700), home + "/kelvadromed.sock")};
    std::mutex lock;
    std::string registered;
    std::shared_ptr<std::vector<std::string>> told = std::make_shared<std::vector<std::string>>();
    std::shared_ptr<MemorySecretStore> store = std::make_shared<MemorySecretStore>();
    PageSession::Mint mint;
};

/// A store that another start, which knows no lock, writes to in the very moment after this one has.
class OverrunStore final : public SecretStore {
public:
    explicit OverrunStore(std::function<void(MemorySecretStore&)> overrun) : overrun_(std::move(overrun)) {}
    void set(const std::string& value) override {
        kept_.set(value);
        overrun_(kept_);
    }
    std::optional<std::string> read() override { return kept_.read(); }
    bool exists() override { return kept_.exists(); }
    void remove() override { kept_.remove(); }

private:
    MemorySecretStore kept_;
    std::function<void(MemorySecretStore&)> overrun_;
};

} // namespace

TEST_F(MintLoginTest, theFirstStartMakesTheKeyAndLaterOnesKeepIt) {
    EXPECT_EQ(loop.run(mint()).url, "http://127.0.0.1:1/x");
    EXPECT_EQ(store->read(), registered);
    loop.run(mint());
    EXPECT_EQ(store->read(), registered);
    EXPECT_TRUE(told->empty());
}

TEST_F(MintLoginTest, aForeignKeyIsToldOnceAndThrownEachTimeAndNoOtherIsKept) {
    registered = "another program's";
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(loop.run(mint()), DaemonError);
    EXPECT_EQ(
        *told, (std::vector<std::string>{"Another program holds the kelvadrome page key",
                   "kelvadrome cannot open its window safely. Quit kelvadrome, move page-key.sha256 out of " +
                       home + ", then open kelvadrome again.",
                   "OK"}));
    EXPECT_FALSE(store->exists()) << "a refused key would stand in for the right one for good";
    // The way back: once the daemon has let go of that key, the next start makes its own.
    registered.clear();
    loop.run(mint());
    EXPECT_EQ(store->read(), registered);
    registered = "another program's";
    const auto mine = store->read();
    EXPECT_THROW(loop.run(mint()), DaemonError);
    EXPECT_EQ(store->read(), mine) << "a key that was there before stays";
}

TEST_F(MintLoginTest, aStartThatWasOverrunTakesTheKeyThatIsThere) {
    const std::string faster(43, 'f');
    const auto overrun = std::make_shared<OverrunStore>([&](MemorySecretStore& kept) {
        kept.set(faster);
        std::lock_guard guard(lock);
        registered = faster;
    });
    EXPECT_EQ(loop.run(mintFrom(overrun)()).url, "http://127.0.0.1:1/x");
    EXPECT_EQ(overrun->read(), faster);
    EXPECT_TRUE(told->empty());
}

TEST_F(MintLoginTest, aHomeThatOthersMayWriteToGetsNoKey) {
    ::chmod(home.c_str(), 0777);
    EXPECT_THROW(loop.run(mint()), std::runtime_error);
    EXPECT_EQ(daemon.connections(), 0u);
    EXPECT_FALSE(store->exists());
}

TEST_F(MintLoginTest, manyFirstStartsAtOneMomentAllGetIn) {
    for (int round = 0; round < 3; ++round) {
        std::vector<std::FILE*> starts;
        const auto secrets = folder / fmt::format("secrets{}", round);
        const auto command =
            fmt::format("'{}' '{}' '{}' > '{}'", FIRST_START, home, secrets, folder / "said");
        for (int i = 0; i < 6; ++i)
            starts.push_back(::popen((command + std::to_string(i)).c_str(), "we"));
        for (auto* start : starts)
            ASSERT_TRUE(start);
        // They begin when their input ends; each has to be closed before it can be waited for.
        std::vector<std::thread> waiting;
        std::vector<int> ended(starts.size(), -1);
        for (std::size_t i = 0; i < starts.size(); ++i)
            waiting.emplace_back([&, i] { ended[i] = ::pclose(starts[i]); });
        for (auto& one : waiting)
            one.join();
        for (std::size_t i = 0; i < starts.size(); ++i)
            EXPECT_EQ(ended[i], 0) << Files::read((folder / "said") + std::to_string(i), 4096).value_or("");
        std::lock_guard guard(lock);
        EXPECT_EQ(registered.size(), 43u);
        registered.clear();
    }
}

} // namespace kelvadrome::test
