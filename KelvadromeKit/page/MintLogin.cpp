#include "KelvadromeKit/page/MintLogin.h"

#include "KelvadromeKit/page/PageKey.h"

#include <atomic>
#include <mutex>

namespace kelvadrome {

namespace {

struct MintState {
    DaemonClient client;
    std::shared_ptr<SecretStore> store;
    std::string home;
    BackgroundPool* pool;
    Executor mainExecutor;
    CriticalAlert alert;
    std::atomic<bool> alerted = false;
    std::mutex keyTurn{}; // held while the store is asked: two mints that both find no key would make two
};

struct HeldKey {
    std::string text;
    bool fresh; // made just now
};

HeldKey holdKey(MintState& state) {
    std::lock_guard turn(state.keyTurn);
    auto known = PageKey::stored(*state.store);
    if (known)
        return {std::move(*known), false};
    return {PageKey::load(*state.store), true};
}

bool isConflict(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& refused) {
        return refused.code() == "conflict";
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

Task<LoginLink> mint(std::shared_ptr<MintState> state) {
    const auto hold = [state] { return holdKey(*state); };
    auto key = co_await state->pool->run(hold);
    auto link = co_await attempt(state->client.mintLogin(std::move(key.text)));
    const bool conflict = !link && isConflict(link.error());
    if (conflict && key.fresh) {
        // The registered one may lie where this start can't look, in a keyring that is closed to it. A
        // refused key in its place would shut the starts out that can.
        const auto forget = [store = state->store] { store->remove(); };
        co_await attempt(state->pool->run(forget));
    }
    if (conflict && !state->alerted.exchange(true))
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
