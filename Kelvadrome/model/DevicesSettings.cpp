#include "Kelvadrome/model/DevicesSettings.h"

#include "KelvadromeKit/relay/RelayCode.h"
#include "KelvadromeKit/relay/RelayQR.h"
#include "KelvadromeKit/support/ISO8601.h"

#include <algorithm>
#include <cmath>

namespace kelvadrome {

namespace {

constexpr double tickPause = 1.0;   // seconds
constexpr double copiedPause = 2.0; // for which it says so
constexpr std::size_t qrScale = 8;  // pixels a module
constexpr const char* unreachable = "kelvadrome could not reach its daemon.";

std::string wordsOf(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& refusal) {
        return refusal.message();
    } catch (...) {
        return unreachable;
    }
}

} // namespace

std::optional<std::string> DevicesState::pairingState() const {
    if (status && status->pairing)
        return status->pairing->state;
    if (!pairing)
        return std::nullopt;
    return secondsLeft() > 0 ? "waiting" : "expired"; // the daemon hasn't told yet
}

std::int64_t DevicesState::secondsLeft() const {
    std::optional<WallTime> end;
    if (status && status->pairing) {
        end = parseISO8601(status->pairing->expiresAt);
    } else if (pairing) {
        end = parseISO8601(pairing->expiresAt);
    }
    if (!end)
        return 0;
    return static_cast<std::int64_t>(std::max(0.0, std::floor((*end - now).count())));
}

const RelayPairStart* DevicesState::offer() const {
    return pairing && pairingState() == "waiting" ? &*pairing : nullptr;
}

bool DevicesState::mayAllow() const {
    return pairingState() == "joined" && typedCode.size() == RelayCode::length;
}

std::shared_ptr<DevicesSettings> DevicesSettings::make(Dependencies dependencies) {
    struct Settings final : DevicesSettings {
        explicit Settings(Dependencies d) : DevicesSettings(std::move(d)) {}
    };
    return std::make_shared<Settings>(std::move(dependencies));
}

DevicesSettings::DevicesSettings(Dependencies dependencies)
    : parts_(std::move(dependencies)), changes_(parts_.executor), tasks_(parts_.executor) {}

void DevicesSettings::look() {
    looking_ = true;
    state_.now = parts_.clock->now();
    tasks_.launch("relay status", refresh(shared_from_this()));
    startTicking();
}

void DevicesSettings::startTicking() {
    if (!std::exchange(ticking_, true))
        tasks_.launch("relay tick", tick(weak_from_this(), parts_.clock));
}

Task<> DevicesSettings::tick(Weak weak, std::shared_ptr<Clock> clock) {
    while (true) {
        co_await clock->sleep(tickPause);
        const auto self = weak.lock();
        if (!self)
            co_return;
        if (!self->looking_ && !self->state_.copiedCode) {
            self->ticking_ = false;
            co_return;
        }
        self->state_.now = clock->now();
        self->changes_.changed();
        self->tasks_.launch("relay status", refresh(self));
    }
}

/// What an action or a later question has brought since knows better.
Task<> DevicesSettings::refresh(Self self) {
    const auto question = ++self->asked_;
    auto status = co_await attempt(RelayCalls::status(self->parts_.client));
    self->state_.connectorError = self->parts_.connector->lastError();
    self->changes_.changed();
    if (!status || question <= self->settled_)
        co_return;
    self->settle(std::move(*status), question);
    co_await cleanPasteboard(self);
}

/// A link that is of no use any more doesn't stay on the pasteboard. What the user copied since does.
Task<> DevicesSettings::cleanPasteboard(Self self) {
    const auto& pairing = self->state_.status->pairing;
    const auto copied = self->state_.copiedCode;
    if (!copied || (pairing && pairing->state == "waiting"))
        co_return;
    const auto held = co_await self->parts_.pasteboard->read();
    if (self->state_.copiedCode != copied)
        co_return; // the link of another attempt
    if (held == copied)
        self->parts_.pasteboard->clear();
    self->state_.copiedCode.reset();
}

void DevicesSettings::act(const char* name, Task<> action) {
    state_.busy = true;
    changes_.changed();
    tasks_.launch(name, whileBusy(shared_from_this(), std::move(action)));
}

Task<> DevicesSettings::whileBusy(Self self, Task<> action) {
    const auto outcome = co_await attempt(std::move(action));
    self->state_.busy = false;
    self->changes_.changed();
    if (outcome.error())
        std::rethrow_exception(outcome.error());
}

bool DevicesSettings::succeeded(const std::exception_ptr& error) {
    state_.error = error ? std::optional(wordsOf(error)) : std::nullopt;
    return !error;
}

/// The link of an attempt that the daemon doesn't know any more, or that another window has replaced, leads
/// nowhere.
void DevicesSettings::settle(RelayStatus status, std::uint64_t question) {
    const bool known = state_.pairing && status.pairing && status.pairing->id == state_.pairing->pairingId;
    if (!known)
        endAttempt();
    state_.status = std::move(status);
    settled_ = question;
}

void DevicesSettings::endAttempt() {
    state_.pairing.reset();
    state_.qr.reset();
}

void DevicesSettings::setEnabled(bool on) {
    if (!state_.busy)
        act("relay switch", enable(shared_from_this(), on));
}

Task<> DevicesSettings::enable(Self self, bool on) {
    auto status = co_await attempt(RelayCalls::enable(self->parts_.client, on));
    if (!self->succeeded(status.error()))
        co_return;
    self->settle(std::move(*status), self->asked_);
    if (on) {
        co_await self->parts_.connector->startIfEnabled();
    } else {
        self->parts_.connector->stop();
    }
    self->state_.connectorError = self->parts_.connector->lastError();
}

void DevicesSettings::startPairing() {
    if (!state_.busy)
        act("relay pairing", pair(shared_from_this()));
}

Task<> DevicesSettings::pair(Self self) {
    auto start = co_await attempt(RelayCalls::startPairing(self->parts_.client));
    if (!self->succeeded(start.error()))
        co_return;
    auto& state = self->state_;
    state.pairing = std::move(*start);
    state.typedCode.clear();
    state.now = self->parts_.clock->now();
    const auto picture = RelayQR::image(state.pairing->url, qrScale);
    state.qr = picture ? std::make_shared<const GreyPicture>(*picture) : nullptr;
    if (state.status)
        state.status->pairing.reset(); // an attempt before this one
    self->settled_ = self->asked_;     // what is on its way knows nothing of it
    co_await refresh(self);
}

void DevicesSettings::copy() {
    const auto* const offer = state_.offer();
    if (!offer)
        return;
    parts_.pasteboard->clear();
    parts_.pasteboard->writeSecret(offer->url);
    state_.copiedCode = offer->url;
    state_.copied = true;
    changes_.changed();
    tasks_.launch("copied", forgetCopied(weak_from_this(), parts_.clock, ++copies_));
    startTicking();
}

Task<> DevicesSettings::forgetCopied(Weak weak, std::shared_ptr<Clock> clock, std::uint64_t copy) {
    co_await clock->sleep(copiedPause);
    const auto self = weak.lock();
    if (!self || copy != self->copies_)
        co_return;
    self->state_.copied = false;
    self->changes_.changed();
}

void DevicesSettings::type(const std::string& text) {
    state_.typedCode = RelayCode::digits(text);
    changes_.changed();
}

void DevicesSettings::decide(bool allow) {
    if (state_.busy || !state_.status || !state_.status->pairing || (allow && !state_.mayAllow()))
        return;
    act("relay decision", decideNow(shared_from_this(), state_.status->pairing->id, allow,
                              RelayCode::digits(state_.typedCode)));
}

Task<> DevicesSettings::decideNow(Self self, std::string id, bool allow, std::string code) {
    auto call = RelayCalls::decide(self->parts_.client, std::move(id), allow, std::move(code));
    auto status = co_await attempt(std::move(call));
    if (!self->succeeded(status.error()))
        co_return;
    self->settle(std::move(*status), self->asked_);
    self->endAttempt();
    self->state_.typedCode.clear();
}

void DevicesSettings::revoke(const std::string& deviceId) {
    if (state_.busy || state_.confirmUnpair || !state_.status)
        return;
    const auto& devices = state_.status->devices;
    const auto device = std::ranges::find(devices, deviceId, &RelayStatus::Device::id);
    if (device == devices.end())
        return;
    state_.confirmUnpair = *device;
    changes_.changed();
    tasks_.launch("relay unpairing", ask(shared_from_this(), *device));
}

Task<> DevicesSettings::ask(Self self, RelayStatus::Device device) {
    Question question{"Unpair " + (device.name.empty() ? std::string("this phone") : device.name) + "?",
        "Its keys stop working at once. Pair again with a new QR code.", "Unpair"};
    auto answer = co_await attempt(self->parts_.confirm(std::move(question)));
    self->state_.confirmUnpair.reset();
    self->changes_.changed();
    if (!answer || !*answer || self->state_.busy)
        co_return;
    self->act("relay unpairing", revokeNow(self, std::move(device.id)));
}

Task<> DevicesSettings::revokeNow(Self self, std::string id) {
    auto status = co_await attempt(RelayCalls::revoke(self->parts_.client, std::move(id)));
    if (self->succeeded(status.error()))
        self->settle(std::move(*status), self->asked_);
}

} // namespace kelvadrome
