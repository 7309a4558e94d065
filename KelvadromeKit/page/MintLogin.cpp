#include "KelvadromeKit/page/MintLogin.h"

#include "KelvadromeKit/daemon/DataHome.h"
#include "KelvadromeKit/page/PageKey.h"
#include "KelvadromeKit/support/FileLock.h"
#include "KelvadromeKit/support/Files.h"

#include <atomic>

namespace kelvadrome {

namespace {

constexpr const char* lockName = "page-key.lock";
/// Seconds for the start before this one, whose keyring may be asking its user for a password.
constexpr double lockLimit = 90;

struct MintState {
    DaemonClient client;
    std::shared_ptr<SecretStore> store;
    std::string home;
    BackgroundPool* pool;
    Executor mainExecutor;
    CriticalAlert alert;
    std::atomic<bool> alerted = false;
};

/// Whether the daemon refused with this code.
bool isRefusal(const std::exception_ptr& error, std::string_view code) {
    if (!error)
        return false;
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& refused) {
        return refused.code() == code;
    } catch (...) {
        return false;
    }
}

/// On the main executor, where the alert is made and shown.
Task<> tellUser(std::shared_ptr<MintState> state) {
    auto text = "kelvadrome cannot open its window safely. Quit kelvadrome, move page-key.sha256 out of " +
                state->home + ", then open kelvadrome again.";
    auto alert = state->alert("Another program holds the kelvadrome page key", std::move(text), "OK");
    co_await std::move(alert);
}

Task<std::optional<std::string>> storedKey(std::shared_ptr<MintState> state) {
    const auto read = [state] { return PageKey::stored(*state->store); };
    co_return co_await state->pool->run(read);
}

/// The first login of an installation. To make a key and to register it is one step among all that start on
/// this home: two that each made their own would shut one another out for good.
Task<LoginLink> firstLogin(std::shared_ptr<MintState> state) {
    const auto take = [path = Files::join(state->home, lockName)] {
        return std::make_shared<FileLock>(path, lockLimit);
    };
    const auto turn = co_await state->pool->run(take);
    const auto made = co_await storedKey(state); // by the start before, meanwhile
    if (made)
        co_return co_await state->client.mintLogin(*made);

    // The daemon refuses a link without a key once a key is registered. That key may lie in a keyring that
    // this start can't reach, so a new one is tried and not stored: stored, it would lock the others out.
    const auto bare = co_await attempt(state->client.mintLogin(std::nullopt));
    const auto key = PageKey::generate();
    if (!isRefusal(bare.error(), "forbidden")) {
        const auto save = [state, key] { state->store->set(key); };
        co_await state->pool->run(save);
    }
    auto link = co_await attempt(state->client.mintLogin(key));
    if (isRefusal(link.error(), "conflict")) {
        // An older version, which takes no lock, was faster: the store may hold its key by now.
        const auto other = co_await storedKey(state);
        if (other && *other != key)
            co_return co_await state->client.mintLogin(*other);
    }
    co_return link.take();
}

Task<LoginLink> mint(std::shared_ptr<MintState> state) {
    if (const auto refusal = DataHome::refusal(state->home))
        throw std::runtime_error(*refusal); // the key would go to whoever listens there
    const auto key = co_await storedKey(state);
    auto login = key ? state->client.mintLogin(*key) : firstLogin(state);
    auto link = co_await attempt(std::move(login));
    if (isRefusal(link.error(), "conflict") && !state->alerted.exchange(true))
        co_await runOn(state->mainExecutor, tellUser(state));
    co_return link.take();
}

} // namespace

PageSession::Mint mintLogin(DaemonClient client, std::shared_ptr<SecretStore> store, std::string home,
    BackgroundPool& pool, Executor mainExecutor, CriticalAlert alert) {
    auto state = std::shared_ptr<MintState>(new MintState{std::move(client), std::move(store),
        std::move(home), &pool, std::move(mainExecutor), std::move(alert)});
    return [state] { return mint(state); };
}

} // namespace kelvadrome
