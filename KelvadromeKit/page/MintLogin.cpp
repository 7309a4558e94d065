#include "KelvadromeKit/page/MintLogin.h"

#include "KelvadromeKit/page/PageKey.h"

#include <atomic>

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
};

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
    const auto load = [store = state->store] { return PageKey::load(*store); };
    auto key = co_await state->pool->run(load);
    auto link = co_await attempt(state->client.mintLogin(std::move(key)));
    if (!link && isConflict(link.error()) && !state->alerted.exchange(true))
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
