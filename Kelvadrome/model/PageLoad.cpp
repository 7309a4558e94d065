#include "Kelvadrome/model/PageLoad.h"

#include "KelvadromeKit/page/NavigationPolicy.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kelvadrome {

namespace {

constexpr const char* notLoaded = "The page did not load";
constexpr const char* stopped = "The page stopped working";

} // namespace

PageLoad::Actions PageLoad::handle(const Event& event, double now) {
    return std::visit([&](const auto& one) { return on(one, now); }, event);
}

std::optional<double> PageLoad::wakeAt() const {
    std::optional<double> due = retryAt_;
    if (load_ == Load::underWay)
        due = std::min(due.value_or(progressedAt_ + quietLimit), progressedAt_ + quietLimit);
    return due;
}

// What the shell wants

PageLoad::Actions PageLoad::on(const PageEvent::SessionBegan& event, double) {
    base_ = event.base;
    if (document_ == Document::loaded)
        document_ = Document::shown;
    firstLoadDue_ = true;
    wanted_ = event.url;
    return prepare();
}

/// A request that is still being prepared goes there instead.
PageLoad::Actions PageLoad::on(const PageEvent::AddressWanted& event, double) {
    wanted_ = event.url;
    return preparing_ ? Actions{} : prepare();
}

PageLoad::Actions PageLoad::on(const PageEvent::TryAgainPressed&, double) {
    return tryAgain();
}

PageLoad::Actions PageLoad::on(const PageEvent::ReloadWanted&, double now) {
    if (inTrouble_)
        return tryAgain();
    if (!hasDocument() || preparing_)
        return {};
    beginLoad(now); // a page that hangs doesn't even tell that it starts
    return {PageAction::Reload{}};
}

PageLoad::Actions PageLoad::prepare() {
    retryAt_.reset();
    preparing_ = true;
    return {PageAction::Prepare{}};
}

PageLoad::Actions PageLoad::tryAgain() {
    return preparing_ || base_.empty() ? Actions{} : prepare();
}

PageLoad::Actions PageLoad::on(const PageEvent::Prepared& event, double now) {
    preparing_ = false;
    if (event.refusal)
        return {trouble(notLoaded, "kelvadrome could not reach its page: " + *event.refusal, now)};
    if (!event.cookiePlaced)
        return {trouble(notLoaded, "The program that keeps the page's cookie does not answer.", now)};
    requested_ = true;
    beginLoad(now);
    return {PageAction::Request{wanted_}};
}

// What the web view tells

PageLoad::Actions PageLoad::on(const PageEvent::LoadStarted&, double now) {
    requested_ = false;
    beginLoad(now);
    return {};
}

PageLoad::Actions PageLoad::on(const PageEvent::LoadProgressed&, double now) {
    progressedAt_ = now;
    return {};
}

PageLoad::Actions PageLoad::on(const PageEvent::DocumentShown&, double) {
    if (document_ == Document::none)
        document_ = Document::shown;
    retryAt_.reset();
    inTrouble_ = false;
    return {PageAction::ShowPage{}};
}

PageLoad::Actions PageLoad::on(const PageEvent::DocumentArrived&, double) {
    if (load_ == Load::underWay)
        load_ = Load::arrived;
    return {};
}

PageLoad::Actions PageLoad::on(const PageEvent::LoadFinished&, double now) {
    if (preparing_ || requested_)
        return {}; // the end of a page that is about to be replaced doesn't count
    endLoad();
    if (load_ == Load::failed)
        return {};
    holdOff_.loaded(now);
    document_ = Document::loaded;
    return {PageAction::PageLoaded{.first = std::exchange(firstLoadDue_, false)}};
}

PageLoad::Actions PageLoad::on(const PageEvent::LoadFailed& event, double now) {
    const bool told = std::exchange(load_, Load::failed) == Load::failed;
    if (preparing_ || told)
        return {};
    using enum PageEvent::LoadFailed::Kind;
    if (event.kind == broken) {
        wanted_ = event.url;
        return {
            trouble(notLoaded, fmt::format("kelvadrome could not reach its page: {}.", event.message), now)};
    }
    const bool blank = !hasDocument() || inTrouble_;
    if (event.kind == notAllowed && blank)
        return {trouble(notLoaded, "The daemon sent the page to an address that is not its own.", now)};
    return {};
}

PageLoad::Actions PageLoad::on(const PageEvent::ServerErrorCame& event, double now) {
    load_ = Load::failed;
    wanted_ = event.url;
    return {trouble(notLoaded, fmt::format("The daemon answered with an error ({}).", event.status), now)};
}

PageLoad::Actions PageLoad::on(const PageEvent::ProcessEnded& event, double now) {
    endLoad();
    document_ = Document::none;
    if (preparing_)
        return {}; // the request that comes starts another
    if (NavigationPolicy::sameOrigin(event.shown, base_))
        wanted_ = event.shown;
    return {trouble(stopped,
        event.outOfMemory ? "It needed more memory than there is. What the daemon keeps is safe."
                          : "The program that shows it ended. What the daemon keeps is safe.",
        now)};
}

PageLoad::Actions PageLoad::on(const PageEvent::TimeCame& event, double now) {
    if (load_ == Load::underWay && now >= progressedAt_ + quietLimit)
        return giveUp(event.processAnswers, now);
    if (!retryAt_ || now < *retryAt_)
        return {};
    retryAt_.reset();
    return tryAgain();
}

PageLoad::Actions PageLoad::giveUp(bool processAnswers, double now) {
    if (!processAnswers) {
        load_ = Load::none;
        return {PageAction::EndProcess{}}; // nothing would load in it again; its end is told
    }
    load_ = Load::failed;
    return {PageAction::StopLoading{}, trouble(notLoaded, "The daemon did not answer within a minute.", now)};
}

// Both

PageAction::ShowTrouble PageLoad::trouble(const char* title, const std::string& words, double now) {
    endLoad();
    if (document_ == Document::loaded)
        document_ = Document::shown;
    inTrouble_ = true;
    const double pause = holdOff_.failed(now);
    retryAt_ = now + pause;
    return {title, fmt::format("{} kelvadrome tries again in {:.0f} seconds.", words, pause)};
}

void PageLoad::beginLoad(double now) {
    load_ = Load::underWay;
    progressedAt_ = now;
}

/// Its limit no longer counts; that it has failed is kept until the next one begins.
void PageLoad::endLoad() {
    if (load_ != Load::failed)
        load_ = Load::none;
}

} // namespace kelvadrome
