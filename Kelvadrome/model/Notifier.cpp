#include "Kelvadrome/model/Notifier.h"

#include "KelvadromeKit/attention/InboxLogic.h"

#include <boost/asio/post.hpp>
#include <fmt/format.h>

#include <random>

namespace kelvadrome {

namespace {

std::string uniqueIdentifier() {
    std::random_device random;
    return fmt::format("stop-{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
}

} // namespace

Notifier::Notifier(Executor executor, std::shared_ptr<NotificationCenter> center)
    : executor_(std::move(executor)), center_(std::move(center)) {}

Task<> Notifier::setUp(bool enabled, std::function<void(bool)> report) {
    const auto self = shared_from_this();
    if (!enabled || !center_->acceptsThisProcess())
        co_return;
    center_->setOpened([weak = weak_from_this(), executor = executor_] {
        asio::post(executor, [weak] {
            const auto self = weak.lock();
            if (self && self->onOpen)
                self->onOpen();
        });
    });
    center_->registerCategory({categoryIdentifier, {{actionIdentifier, actionTitle}}});
    report_ = std::move(report);
    reported_.reset();
    center_->setAuthorizationChanged([weak = weak_from_this(), executor = executor_] {
        spawn(executor, "notification permission", askAgain(weak));
    });
    co_await ask();
}

Task<> Notifier::askAgain(std::weak_ptr<Notifier> weak) {
    if (const auto self = weak.lock())
        co_await self->ask();
}

Task<> Notifier::ask() {
    const auto self = shared_from_this();
    asksOnceMore_ = true;
    if (std::exchange(asking_, true))
        co_return; // who asks already will ask once more
    while (std::exchange(asksOnceMore_, false)) {
        auto allowed = co_await attempt(center_->requestAuthorization());
        enabled_ = allowed && *allowed;
    }
    asking_ = false;
    if (std::exchange(reported_, enabled_) != enabled_)
        report_(enabled_);
}

Task<std::string> Notifier::postStop(std::int64_t count) {
    const auto self = shared_from_this();
    if (!enabled_ || count < 1)
        co_return std::string();
    NotificationRequest request{.identifier = uniqueIdentifier(),
        .title = "kelvadrome",
        .body = InboxLogic::notificationBody(count),
        .category = categoryIdentifier,
        .thread = threadIdentifier};
    auto identifier = request.identifier;
    const auto added = co_await attempt(center_->add(std::move(request)));
    co_return added ? identifier : std::string();
}

} // namespace kelvadrome
