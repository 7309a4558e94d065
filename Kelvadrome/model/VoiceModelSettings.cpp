#include "Kelvadrome/model/VoiceModel.h"
#include "KelvadromeKit/voice/TranscriptionError.h"
#include "KelvadromeKit/voice/VoiceCalls.h"
#include "KelvadromeKit/voice/WAV.h"

namespace kelvadrome {

namespace {

constexpr double testSeconds = 1;

std::string testWords(const std::exception_ptr& error) {
    try {
        if (error)
            std::rethrow_exception(error);
        return "The key works.";
    } catch (const TranscriptionError& known) {
        return known.errorDescription();
    } catch (const std::exception&) {
        return "The test failed.";
    }
}

} // namespace

// One change goes out after the other, so that the last one of a setting is the one that stays.

void VoiceModel::save(VoiceSettingChange change) {
    unsaved_.push_back(std::move(change));
    set(&VoiceState::saveLine, std::nullopt);
    showSettings();
    if (!std::exchange(saving_, true))
        tasks_.launch("voice settings", saveChanges(weak_from_this()));
}

Task<> VoiceModel::saveChanges(Weak weak) {
    for (;;) {
        auto self = weak.lock();
        if (!self)
            co_return;
        if (self->unsaved_.empty()) {
            self->saving_ = false;
            const bool selected = std::exchange(self->selectionSaved_, false);
            self.reset();
            co_await refreshNow(weak, selected);
            co_return;
        }
        auto saving = saveVoiceSetting(self->parts_.client, self->unsaved_.front());
        self.reset();
        const auto failure = co_await std::move(saving);
        if (self = weak.lock())
            self->saved(failure);
    }
}

void VoiceModel::saved(const std::optional<std::string>& failure) {
    const auto change = std::move(unsaved_.front());
    unsaved_.pop_front();
    if (!failure) {
        change.applyTo(confirmed_);
        if (change.isSelection()) {
            selectionSaved_ = true;
            if (state_.scan)
                state_.scan->selected = *confirmed_.selected;
        }
    }
    if (failure)
        set(&VoiceState::saveLine, failure);
    showSettings();
}

/// What the daemon has, with what it hasn't been told yet.
void VoiceModel::showSettings() {
    auto shown = confirmed_;
    for (const auto& change : unsaved_)
        change.applyTo(shown);
    set(&VoiceState::settings, std::move(shown));
}

// The key

void VoiceModel::saveKey(std::string text) {
    changeKey(std::move(text));
}

void VoiceModel::removeKey() {
    changeKey(std::nullopt);
}

/// What was said of the press before is gone at once, so that nobody takes it for the answer to this one.
void VoiceModel::changeKey(std::optional<std::string> text) {
    auto meanwhile = state_.key;
    meanwhile.message.reset();
    set(&VoiceState::key, std::move(meanwhile));
    tasks_.launch("voice key", storeKey(weak_from_this(), std::move(text), ++keyPresses_));
}

Task<> VoiceModel::storeKey(Weak weak, std::optional<std::string> text, std::uint64_t press) {
    auto self = weak.lock();
    if (!self)
        co_return;
    SecretField field{.text = text.value_or(""), .saved = self->state_.key.saved, .message = {}};
    const bool stores = text.has_value();
    auto changing = self->parts_.pool->run([secrets = self->parts_.secrets, field, stores]() mutable {
        if (stores) {
            field.save(*secrets);
        } else {
            field.remove(*secrets);
        }
        field.text.clear(); // stays with who typed it
        return field;
    });
    self.reset();
    auto changed = co_await std::move(changing);
    if (self = weak.lock(); self && self->keyPresses_ == press)
        self->set(&VoiceState::key, std::move(changed));
    self.reset();
    co_await tellEngines(weak);
}

void VoiceModel::keyChanged() {
    tasks_.launch("voice key", keyRead(weak_from_this()));
}

Task<> VoiceModel::keyRead(Weak weak) {
    co_await readKey(weak);
    co_await tellEngines(weak);
}

Task<> VoiceModel::tellEngines(Weak weak) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto telling = voiceEngineStatus(self->parts_.client, self->openAIReady(), self->state_.apple);
    self.reset();
    co_await std::move(telling);
}

void VoiceModel::testKey() {
    if (state_.testing)
        return;
    set(&VoiceState::testing, true);
    set(&VoiceState::testLine, std::nullopt);
    test_ = tasks_.launch("voice test", tryKey(weak_from_this(), underWay_));
}

Task<> VoiceModel::tryKey(Weak weak, UnderWay) {
    auto self = weak.lock();
    if (!self)
        co_return;
    const auto pipeline = self->pipeline();
    self.reset();
    auto sending = pipeline.transcribe(WAV::silence(testSeconds, voiceSampleRate), testSeconds);
    const auto outcome = co_await attempt(std::move(sending));
    if (self = weak.lock(); !self)
        co_return;
    self->tasks_.launch("voice minutes", readUsed(weak));
    self->set(&VoiceState::testing, false);
    self->set(&VoiceState::testLine, std::optional(testWords(outcome.error())));
}

} // namespace kelvadrome
