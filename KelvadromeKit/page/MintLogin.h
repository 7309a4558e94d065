#pragma once

#include "KelvadromeKit/page/PageSession.h"
#include "KelvadromeKit/page/SecretStore.h"
#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <functional>
#include <memory>
#include <string>

namespace kelvadrome {

/// Shows a critical message with one button and resumes when it was dismissed.
using CriticalAlert = std::function<Task<>(std::string title, std::string text, std::string button)>;

/// What a page session mints its login links with: the page key from the store, then the daemon's link. The
/// first start makes the key, under a lock in `home` that all others wait for; where another key is
/// registered already, none is kept. That ("conflict") is told to the user, once in the closure's life, by
/// `alert` on `mainExecutor`; the error is thrown all the same. Nothing is asked in a home that isn't
/// private. The pool must outlive the closure.
PageSession::Mint mintLogin(DaemonClient client, std::shared_ptr<SecretStore> store, std::string home,
    BackgroundPool& pool, Executor mainExecutor, CriticalAlert alert);

} // namespace kelvadrome
