#include "Kelvadrome/platform/linux/core/FileSecretStore.h"
#include "KelvadromeKit/daemon/DaemonEnvironment.h"
#include "KelvadromeKit/page/MintLogin.h"
#include "KelvadromeKit/support/Log.h"

#include <boost/asio/io_context.hpp>

#include <cstdio>

using namespace kelvadrome;

/// One start of a shell, as far as its first login link: FirstStart HOME SECRETS. It waits for its standard
/// input to end, so that many begin at one moment, and prints "link", or why there was none.
int main(int, char** arguments) {
    const std::string home = arguments[1];
    const DaemonEnvironment env(home, std::nullopt, std::nullopt);
    asio::io_context context;
    BackgroundPool pool;
    std::string words = "link";
    const auto alert = [](std::string, std::string, std::string) -> Task<> { co_return; };
    const auto mint = mintLogin(DaemonClient(env.socketPath(), pool),
        std::make_shared<FileSecretStore>(arguments[2], "service", "account"), home, pool,
        context.get_executor(), alert);
    while (std::getchar() != EOF) {
    }
    asio::co_spawn(context, attempt(mint()), [&](std::exception_ptr, Outcome<LoginLink> link) {
        if (!link)
            words = describeException(link.error());
    });
    context.run();
    std::puts(words.c_str());
    return words == "link" ? 0 : 1;
}
