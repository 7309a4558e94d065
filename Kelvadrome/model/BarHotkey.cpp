#include "Kelvadrome/model/BarHotkey.h"

namespace kelvadrome {

std::shared_ptr<BarHotkey> BarHotkey::make(Dependencies dependencies) {
    struct Hotkey final : BarHotkey {
        explicit Hotkey(Dependencies d) : BarHotkey(std::move(d)) {}
    };
    auto made = std::make_shared<Hotkey>(std::move(dependencies));
    auto& key = *made->parts_.key;
    const auto weak = std::weak_ptr<BarHotkey>(made);
    key.onPress = [weak] {
        if (const auto self = weak.lock())
            self->press();
    };
    key.onRelease = [weak] {
        if (const auto self = weak.lock())
            self->release();
    };
    key.onChange = [weak](HotkeyOutcome outcome) {
        if (const auto self = weak.lock(); self && self->state_.outcome) // else it is of a key of before
            self->stands(outcome);
    };
    key.onReturn = [weak] {
        if (const auto self = weak.lock())
            self->registerKey();
    };
    return made;
}

BarHotkey::BarHotkey(Dependencies dependencies)
    : parts_(std::move(dependencies)), changes_(parts_.executor), tasks_(parts_.executor) {
    state_.label = wanted(*parts_.defaults).label();
}

HotkeySpec BarHotkey::wanted(const Defaults& defaults) {
    const auto label = defaults.string(labelKey);
    const auto spec = label ? HotkeySpec::fromLabel(*label) : std::nullopt;
    return spec.value_or(HotkeySpec::standard());
}

void BarHotkey::use(const std::string& label) {
    if (parts_.defaults->string(labelKey) != label)
        parts_.defaults->set(labelKey, label);
    const bool same = wanted(*parts_.defaults).label() == state_.label;
    if (!same || turn_ == 0 || state_.outcome == HotkeyOutcome::taken())
        registerKey();
}

void BarHotkey::registerKey() {
    gesture_.barWasOpen = false;
    release(); // that of the key of before may never be told
    auto spec = wanted(*parts_.defaults);
    state_.label = spec.label();
    state_.outcome.reset();
    changes_.changed();
    tasks_.launch("bar key", registerNow(weak_from_this(), parts_.key, std::move(spec), ++turn_));
}

Task<> BarHotkey::registerNow(
    std::weak_ptr<BarHotkey> weak, std::shared_ptr<GlobalHotkey> key, HotkeySpec spec, std::uint64_t turn) {
    auto registration = key->registerKey(std::move(spec));
    const auto outcome = co_await std::move(registration);
    if (const auto self = weak.lock(); self && self->turn_ == turn)
        self->stands(outcome);
}

void BarHotkey::stands(HotkeyOutcome outcome) {
    state_.outcome = outcome;
    changes_.changed();
}

void BarHotkey::press() {
    const auto panel = parts_.panel.lock();
    if (!panel || gesture_.downAt)
        return;
    apply(gesture_.keyDown(parts_.clock->uptime(), panel->isOpen(), parts_.voice->holdCapable()));
    tasks_.launch("bar key held", tickLater(weak_from_this(), parts_.clock));
}

Task<> BarHotkey::tickLater(std::weak_ptr<BarHotkey> weak, std::shared_ptr<Clock> clock) {
    co_await clock->sleep(HotkeyGesture::holdThreshold);
    if (const auto self = weak.lock())
        self->apply(self->gesture_.tick(clock->uptime()));
}

void BarHotkey::release() {
    apply(gesture_.keyUp(parts_.clock->uptime()));
}

void BarHotkey::apply(const HotkeyGesture::Effects& effects) {
    const auto panel = parts_.panel.lock();
    for (const auto effect : effects) {
        switch (effect) {
        case HotkeyGesture::Effect::openBar:
            if (panel)
                panel->show(true);
            break;
        case HotkeyGesture::Effect::closeBar:
            if (panel)
                panel->hide();
            break;
        case HotkeyGesture::Effect::startTalk:
            tasks_.launch("talk", callVoice(parts_.voice, &BarVoice::holdStart));
            break;
        case HotkeyGesture::Effect::stopTalk:
            tasks_.launch("talk", callVoice(parts_.voice, &BarVoice::holdStop));
            break;
        }
    }
}

} // namespace kelvadrome
