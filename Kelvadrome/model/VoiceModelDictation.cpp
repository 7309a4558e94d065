#include "Kelvadrome/model/VoiceModel.h"

namespace kelvadrome {

/// The bar may be closed, and opened again, before the daemon has answered.
Task<> VoiceModel::opened(Weak weak, std::uint64_t opening) {
    auto self = weak.lock();
    if (!self)
        co_return;
    const auto last = self->lastRefresh_;
    const bool fresh = last && self->parts_.clock->uptime() - *last <= scanFresh;
    self.reset();
    if (!fresh)
        co_await refreshNow(weak, false);
    self = weak.lock();
    if (!self || !self->barOpen_ || self->opening_ != opening || !self->dictation_)
        co_return;
    const auto with = self->dictation_;
    const auto settings = self->state_.settings;
    const bool starts = settings.autoStart && self->route().kind == VoiceRoute::Kind::urlApp;
    self.reset();
    co_await with->barOpened(settings.superwhisperMode);
    self = weak.lock();
    if (!self || !self->barOpen_ || self->opening_ != opening || self->dictation_ != with)
        co_return;
    self->tellDictation();
    self.reset();
    if (!starts)
        co_return;
    auto starting = startDictation(weak, with);
    co_await std::move(starting);
}

Task<> VoiceModel::startDictation(Weak weak, Dictation with) {
    co_await with->start();
    if (const auto self = weak.lock(); self && self->dictation_ == with)
        self->tellDictation();
}

void VoiceModel::endDictation() {
    tasks_.launch("dictation", stopDictation(weak_from_this(), dictation_));
    tasks_.launch(
        "dictation's answer", checkAnswer(weak_from_this(), dictation_, parts_.clock, ++answerCheck_));
}

Task<> VoiceModel::stopDictation(Weak weak, Dictation with) {
    co_await with->stop();
    if (const auto self = weak.lock())
        self->changes_.changed();
}

Task<> VoiceModel::closeDictation(Dictation with, UnderWay) {
    co_await with->barClosed();
}

/// The app types what it heard into the field. When nothing came for long, the bar says so.
Task<> VoiceModel::checkAnswer(
    Weak weak, std::weak_ptr<DictationController> with, std::shared_ptr<Clock> clock, std::uint64_t check) {
    using Status = DictationController::Status;
    co_await clock->sleep(noAnswerAfter);
    const auto self = weak.lock();
    const auto dictation = with.lock();
    if (!self || !dictation || self->answerCheck_ != check || dictation->recording())
        co_return;
    if (dictation->status() != Status::listening)
        co_return;
    dictation->setStatus(Status::noAnswer);
    if (self->dictation_ == dictation)
        self->tellDictation();
}

void VoiceModel::tellDictation() {
    changes_.changed(); // whether it records may have changed, too
    if (isBusyHere())
        return; // the line is of another recording
    say(DictationController::text(
        dictation_->status(), selectedName().value_or(dictation_->target().app.name)));
}

} // namespace kelvadrome
