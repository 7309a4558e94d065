#include "Kelvadrome/model/VoiceModel.h"

#include "Kelvadrome/model/VoiceRouteLine.h"

#include <algorithm>

namespace kelvadrome {

std::shared_ptr<VoiceModel> VoiceModel::make(Dependencies dependencies) {
    struct Model final : VoiceModel {
        explicit Model(Dependencies d) : VoiceModel(std::move(d)) {}
    };
    return std::make_shared<Model>(std::move(dependencies));
}

VoiceModel::VoiceModel(Dependencies dependencies)
    : parts_(std::move(dependencies)), changes_(parts_.executor), tasks_(parts_.executor),
      recorder_(MicRecorder::make(parts_.audio)) {
    if (parts_.roots.empty())
        parts_.roots = BundleVerifier::defaultRoots(parts_.home);
}

VoiceModel::~VoiceModel() {
    recorder_->stop();
    tasks_.close();
}

void VoiceModel::useHotkey(std::weak_ptr<BarHotkey> key) {
    hotkey_ = std::move(key);
    registerHotkey();
}

/// A key that isn't known yet stays what it is: the daemon of before may have named it.
void VoiceModel::registerHotkey() {
    if (const auto key = hotkey_.lock(); key && state_.settingsKnown)
        key->use(state_.settings.barHotkey);
}

std::optional<BarKeyState> VoiceModel::hotkey() const {
    const auto key = hotkey_.lock();
    return key ? std::optional(key->state()) : std::nullopt;
}

Task<> VoiceModel::finish() {
    const auto self = shared_from_this();
    const auto clock = parts_.clock;
    dropRecording();
    test_.cancel();
    if (dictation_)
        tasks_.launch("dictation", closeDictation(dictation_, underWay_));
    const double end = clock->uptime() + longestFinish;
    while (underWay_.use_count() > 1 && clock->uptime() < end)
        co_await clock->sleep(0.05);
    tasks_.close();
}

// The route

std::string VoiceModel::selectedId() const {
    const bool unsaved = std::ranges::any_of(unsaved_, &VoiceSettingChange::isSelection);
    if (state_.scan && !unsaved)
        return state_.scan->selected;
    return state_.settings.selected.value_or("none");
}

std::optional<std::string> VoiceModel::selectedName() const {
    const auto id = selectedId();
    if (state_.scan) {
        if (const auto* const app = state_.scan->app(id))
            return app->name;
    }
    const auto known = DictationURLApp::find(id);
    return known ? std::optional(known->name) : std::nullopt;
}

VoiceRoute::Facts VoiceModel::facts() const {
    return {.selected = selectedId(),
        .urlControl = state_.settings.holdToTalk,
        .verifiedStartStop =
            dictation_ && dictation_->target().app.id == selectedId() && dictation_->target().canStartStop(),
        .openAIEnabled = state_.settings.openAIEnabled,
        .keySaved = state_.key.saved,
        .apple = state_.apple,
        .localReady = state_.scan && state_.scan->localReady()};
}

VoiceRoute VoiceModel::route() const {
    auto decided = VoiceRoute::decide(facts());
    const bool over = state_.capReached && state_.apple == AppleSpeechState::ready;
    if (decided.kind == VoiceRoute::Kind::openAI && over)
        return {VoiceRoute::Kind::apple};
    return decided;
}

std::string VoiceModel::routeLine() const {
    return voiceRouteLine(route(), facts(), selectedName(), state_.capReached);
}

// The bar

std::string VoiceModel::hint() const {
    const auto key = hotkey_.lock();
    return route().hint(selectedName(), key ? key->state().label : state_.settings.barHotkey);
}

std::optional<std::string> VoiceModel::textModeLine() const {
    return BarInput::textModeLine(route(), state_.microphone);
}

bool VoiceModel::micUsable() const {
    return BarInput::micUsable(route(), state_.microphone);
}

bool VoiceModel::recording() const {
    return state_.listening || (dictation_ && dictation_->recording());
}

/// What was begun is ended where it was begun, whatever the route has become meanwhile.
Task<> VoiceModel::micPressed() {
    if (state_.listening) {
        finishRecording();
    } else if (dictation_ && dictation_->recording()) {
        endDictation();
    } else {
        beginTalk();
    }
    co_return;
}

Task<> VoiceModel::holdStart() {
    beginTalk();
    co_return;
}

Task<> VoiceModel::holdStop() {
    if (state_.listening || wanted_) {
        finishRecording();
    } else if (dictation_) {
        endDictation(); // a start of just before may not have come so far that it shows
    }
    co_return;
}

void VoiceModel::beginTalk() {
    const auto now = route();
    if (now.recordsHere()) {
        beginRecording(now.kind);
    } else if (now.kind == VoiceRoute::Kind::urlApp && dictation_) {
        tasks_.launch("dictation", startDictation(weak_from_this(), dictation_));
    }
}

Task<> VoiceModel::barOpened() {
    if (!std::exchange(barOpen_, true))
        ++opening_;
    if (!isBusyHere())
        say(std::nullopt);
    tasks_.launch("voice for the bar", opened(weak_from_this(), opening_));
    co_return;
}

Task<> VoiceModel::barClosed() {
    barOpen_ = false;
    dropRecording();
    if (dictation_)
        tasks_.launch("dictation", closeDictation(dictation_, nullptr));
    co_return;
}

void VoiceModel::textChanged() {
    using Status = DictationController::Status;
    if (!dictation_)
        return;
    const auto status = dictation_->status();
    if (status != Status::listening && status != Status::noAnswer)
        return;
    dictation_->setStatus(Status::textReceived);
    tellDictation();
}

/// The page may do what a press on the microphone does, and only while the bar shows it.
Task<> VoiceModel::pageAction(std::string action) {
    if (action == "refresh") {
        auto refreshing = refresh(true);
        co_await std::move(refreshing);
    } else if (action == "start" && barOpen_ && !recording()) {
        co_await micPressed();
    } else if (action == "stop" && recording()) {
        co_await micPressed();
    }
}

} // namespace kelvadrome
