#include "Kelvadrome/model/VoiceModel.h"
#include "KelvadromeKit/voice/TranscriptionError.h"
#include "KelvadromeKit/voice/VoiceCalls.h"
#include "KelvadromeKit/voice/WAV.h"

namespace kelvadrome {

using Kind = VoiceRoute::Kind;
using Gate = RecordingGate::Kind;
using Case = TranscriptionError::Case;

namespace {

constexpr std::size_t tooShort = 1600; // samples: a tenth of a second
constexpr const char* transcribingLine = "Transcribing.";
constexpr const char* transcribingHereLine = "Transcribing on this Mac.";
constexpr const char* lostLine = "The microphone went away.";
constexpr const char* unknownFailure = "Couldn't transcribe that. Try again.";

/// Absent for a failure of another kind.
std::optional<TranscriptionError> transcriptionError(const std::exception_ptr& error) {
    if (!error)
        return std::nullopt;
    try {
        std::rethrow_exception(error);
    } catch (const TranscriptionError& known) {
        return known;
    } catch (...) {
        return std::nullopt;
    }
}

} // namespace

struct VoiceModel::Recorded {
    Kind route;
    Clip samples;
    std::uint64_t turn;
    UnderWay underWay;
};

// From the press to the open microphone

void VoiceModel::beginRecording(Kind route) {
    if (state_.listening || wanted_)
        return;
    if (!gate_->begin(route == Kind::apple ? Gate::apple : Gate::openAI))
        return say(TranscriptionError(Case::busy).errorDescription());
    wanted_ = true;
    begunOn_ = route;
    tasks_.launch("recording", openMicrophone(weak_from_this(), ++turn_));
}

Task<> VoiceModel::openMicrophone(Weak weak, std::uint64_t turn) {
    auto self = weak.lock();
    if (!self)
        co_return;
    const auto recorder = self->recorder_;
    const auto audio = self->parts_.audio;
    auto ends = endsOf(weak, self->parts_.executor, turn);
    self.reset();
    auto asking = audio->requestAccess();
    auto allowed = co_await attempt(std::move(asking));
    self = weak.lock();
    if (!self || !self->mayListen(turn, allowed && *allowed))
        co_return;
    self.reset();
    auto starting = recorder->start(std::move(ends));
    const auto started = co_await attempt(std::move(starting));
    self = weak.lock();
    if (!self || self->turn_ != turn)
        co_return; // who ended this turn has closed the microphone
    const bool wanted = std::exchange(self->wanted_, false);
    if (!started || !wanted || !recorder->running()) {
        recorder->stop();
        self->freeGate();
        if (!started)
            self->say("The microphone did not start.");
        co_return;
    }
    self->set(&VoiceState::listening, true);
    self->say("Listening.");
    if (self->begunOn_ == Kind::apple && self->parts_.speech)
        self->tasks_.launch("speech model", prepareToHear(self->parts_.speech));
    if (self->lostTurn_ == turn)
        self->recordingEnded(turn, true);
}

/// They come on an audio thread, perhaps when the model is gone.
MicRecorder::Ends VoiceModel::endsOf(Weak weak, Executor executor, std::uint64_t turn) {
    const auto end = [weak, executor, turn](bool lost) {
        asio::post(executor, [weak, turn, lost] {
            if (const auto self = weak.lock())
                self->recordingEnded(turn, lost);
        });
    };
    return {.onLimit = [end] { end(false); }, .onLost = [end] { end(true); }};
}

/// Whether the press still counts, now that the user has been asked.
bool VoiceModel::mayListen(std::uint64_t turn, bool granted) {
    if (turn_ != turn)
        return false; // who ended this turn has freed the gate
    if (granted && wanted_ && barOpen_)
        return true;
    wanted_ = false;
    freeGate();
    if (!granted)
        say("Microphone access is off. Turn it on in System Settings, Privacy and Security.");
    return false;
}

// From the release to the clip

void VoiceModel::recordingEnded(std::uint64_t turn, bool lost) {
    if (turn_ != turn)
        return;
    if (lost)
        lostTurn_ = turn; // perhaps before it was known to be open
    if (!state_.listening)
        return;
    finishRecording();
    if (lost && !state_.transcribing)
        say(lostLine);
}

void VoiceModel::finishRecording() {
    wanted_ = false;
    if (!state_.listening)
        return;
    const auto route = routeOfClip();
    auto samples = recorder_->stop();
    set(&VoiceState::listening, false);
    if (samples.size() <= tooShort) {
        say(std::nullopt);
        return freeGate();
    }
    set(&VoiceState::transcribing, true);
    say(route == Kind::local ? transcribingHereLine : transcribingLine);
    Recorded clip{
        route, std::make_shared<const std::vector<std::int16_t>>(std::move(samples)), turn_, underWay_};
    transcription_ = tasks_.launch("transcription", transcribe(weak_from_this(), std::move(clip)));
}

/// The route may have changed while the user spoke. What was begun for this machine isn't sent elsewhere.
Kind VoiceModel::routeOfClip() const {
    const auto now = route().kind;
    return now == Kind::openAI ? begunOn_ : now;
}

void VoiceModel::dropRecording() {
    ++turn_;
    wanted_ = false;
    recorder_->stop();
    set(&VoiceState::listening, false);
    transcription_.cancel();
    set(&VoiceState::transcribing, false);
    freeGate();
}

void VoiceModel::freeGate() {
    gate_->end(Gate::openAI);
    gate_->end(Gate::apple);
}

// From the clip to the text

SpeechPipeline VoiceModel::pipeline() const {
    OpenAITranscriber::Parts parts{parts_.secrets, parts_.http, parts_.pool};
    return {OpenAITranscriber(state_.settings.openAIModel, std::move(parts)),
        std::make_shared<DaemonBudgetLedger>(parts_.client)};
}

Task<std::string> VoiceModel::textOf(Dependencies parts, SpeechPipeline pipeline, Recorded clip) {
    if (clip.route == Kind::openAI) {
        const double seconds = static_cast<double>(clip.samples->size()) / voiceSampleRate;
        auto wav = WAV::encode(*clip.samples, voiceSampleRate);
        auto sending = pipeline.transcribe(std::move(wav), seconds);
        co_return co_await std::move(sending);
    }
    auto hearing = clip.route == Kind::local ? transcribeOnDevice(parts.client, clip.samples)
                                             : transcribeHere(parts.speech, clip.samples, parts.locale);
    co_return co_await std::move(hearing);
}

/// While the user speaks. What goes wrong here is told when the clip comes.
Task<> VoiceModel::prepareToHear(std::shared_ptr<SpeechEngine> engine) {
    auto preparing = engine->prepare();
    co_await std::move(preparing);
}

Task<std::string> VoiceModel::transcribeHere(
    std::shared_ptr<SpeechEngine> engine, Clip samples, std::string locale) {
    if (!engine)
        throw AppleTranscriber::Error(AppleTranscriber::Failure::unsupportedLocale);
    auto hearing = AppleTranscriber::transcribe(std::move(engine), std::move(samples), std::move(locale));
    co_return co_await std::move(hearing);
}

Task<> VoiceModel::transcribe(Weak weak, Recorded clip) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto first = textOf(self->parts_, self->pipeline(), clip);
    self.reset();
    auto outcome = co_await attempt(std::move(first));
    self = weak.lock();
    if (self && self->fallBack(outcome, clip)) {
        clip.route = Kind::apple;
        auto second = textOf(self->parts_, self->pipeline(), clip);
        self.reset();
        outcome = co_await attempt(std::move(second));
        self = weak.lock();
    }
    if (self && clip.route == Kind::openAI)
        self->tasks_.launch("voice minutes", readUsed(weak));
    if (self && self->turn_ == clip.turn)
        self->transcribed(std::move(outcome));
}

/// True when the day's limit was met and this machine can do it itself.
bool VoiceModel::fallBack(const Outcome<std::string>& outcome, const Recorded& clip) {
    const auto error = transcriptionError(outcome.error());
    if (!error || error->kind() != Case::overCap)
        return false;
    set(&VoiceState::capReached, true);
    set(&VoiceState::usedMinutes, std::optional(error->usedMinutes()));
    if (turn_ != clip.turn || state_.apple != AppleSpeechState::ready)
        return false;
    say("Daily voice limit reached. Using Apple speech.");
    return true;
}

void VoiceModel::transcribed(Outcome<std::string> outcome) {
    set(&VoiceState::transcribing, false);
    freeGate();
    if (!outcome) {
        const auto known = transcriptionError(outcome.error());
        return say(known ? known->errorDescription() : unknownFailure);
    }
    if (state_.status == transcribingLine || state_.status == transcribingHereLine)
        say(lostTurn_ == turn_ ? std::optional<std::string>(lostLine) : std::nullopt);
    if (!outcome->empty() && onText)
        onText(std::move(*outcome));
}

} // namespace kelvadrome
