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
    auto allowed = co_await attempt(center_->requestAuthorization());
    enabled_ = allowed && *allowed;
    report(enabled_);
}

Task<> Notifier::postStop(std::int64_t count) {
    const auto self = shared_from_this();
    if (!enabled_ || count < 1)
        co_return;
    NotificationRequest request{.identifier = uniqueIdentifier(),
        .title = "kelvadrome",
        .body = InboxLogic::notificationBody(count),
        .category = categoryIdentifier,
        .thread = threadIdentifier};
    co_await attempt(center_->add(std::move(request)));
}

} // namespace kelvadrome
