#pragma once

#include "Kelvadrome/model/BarHotkey.h"
#include "Kelvadrome/model/BarVoice.h"
#include "Kelvadrome/model/Collaborators.h"
#include "Kelvadrome/model/VoiceState.h"
#include "KelvadromeKit/support/TaskBag.h"
#include "KelvadromeKit/voice/DictationController.h"
#include "KelvadromeKit/voice/MicRecorder.h"
#include "KelvadromeKit/voice/SpeechPipeline.h"
#include "KelvadromeKit/voice/VoiceRoute.h"
#include "KelvadromeKit/wire/DaemonClient.h"

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// The one place that knows how the user speaks to the system: which route is in force, what the bar says
/// about it, and how a press becomes text. Main executor; made with `make`, since its tasks hold it weakly.
class VoiceModel : public BarVoice, public VoiceControlling, public std::enable_shared_from_this<VoiceModel> {
public:
    static constexpr double scanFresh = 60;     // seconds for which a refresh of before will do
    static constexpr double noAnswerAfter = 60; // seconds
    static constexpr double longestFinish = 2;  // seconds
    static constexpr const char* openAIService = "com.kelvadrome.mac.openai";
    static constexpr const char* openAIAccount = "speech";
    static constexpr const char* openAILabel = "kelvadrome speech key";

    struct Dependencies {
        Executor executor;              // the main one
        BackgroundPool* pool = nullptr; // outlives the model
        std::shared_ptr<Clock> clock;
        DaemonClient client;
        std::shared_ptr<SecretStore> secrets; // the speech key
        std::shared_ptr<HTTPPosting> http;
        std::shared_ptr<AudioSource> audio;
        std::shared_ptr<SpeechEngine> speech = {}; // null where this machine has none
        std::shared_ptr<URLOpening> opener;
        std::shared_ptr<ModeKeyReading> modes;
        std::shared_ptr<ModeJournal> journal;
        CodeSignature::Read signature = {};  // empty where nothing is signed; called on the pool
        std::string locale;                  // the user's, such as "de_AT.UTF-8"
        std::string home;                    // the user's folder
        std::vector<std::string> roots = {}; // of applications; empty: those that BundleVerifier has
    };

    static std::shared_ptr<VoiceModel> make(Dependencies dependencies);
    VoiceModel(const VoiceModel&) = delete;
    VoiceModel& operator=(const VoiceModel&) = delete;
    ~VoiceModel() override;

    /// Which key opens the bar is the daemon's setting; it is handed to this from now on.
    void useHotkey(std::weak_ptr<BarHotkey> key);

    const VoiceState& state() const { return state_; }
    [[nodiscard]] Subscription observe(std::function<void()> observer) override {
        return changes_.observe(std::move(observer));
    }

    // What the settings show besides the state
    VoiceRoute route() const;
    /// In words: the route in force, and why it is that one.
    std::string routeLine() const;
    std::string selectedId() const;
    /// The name of the selected app, in the scan or among the known; absent for a built-in route.
    std::optional<std::string> selectedName() const;
    /// Absent while no key was joined.
    std::optional<BarKeyState> hotkey() const;

    // What the settings do. Each change shows at once; when it wasn't saved it is taken back, and
    // `state().saveLine` says so.
    void save(VoiceSettingChange change);
    /// Stores the speech key, or takes it away; `state().key` tells of it.
    void saveKey(std::string text);
    void removeKey();
    /// Reads anew whether there is a key.
    void keyChanged();
    /// Sends a second of silence; `state().testLine` tells what came of it.
    void testKey();

    // VoiceControlling
    Task<> refresh(bool force) override;
    Task<> pageAction(std::string action) override;
    Task<> finish() override; // for at most `longestFinish` seconds

    // BarVoice
    std::optional<std::string> status() const override { return state_.status; }
    std::optional<std::string> textModeLine() const override;
    std::string hint() const override;
    bool micUsable() const override;
    bool recording() const override;
    bool holdCapable() const override { return route().holdCapable(); }
    Task<> micPressed() override;
    Task<> holdStart() override;
    Task<> holdStop() override;
    Task<> barOpened() override;
    Task<> barClosed() override;
    void textChanged() override;

private:
    using Weak = std::weak_ptr<VoiceModel>;
    using Dictation = std::shared_ptr<DictationController>;
    using UnderWay = std::shared_ptr<const bool>; // held by what an end of the application waits for
    struct Recorded;                              // a clip, and where it is to go

    explicit VoiceModel(Dependencies dependencies);

    template <class T, class V = T>
    void set(T VoiceState::*field, V&& value) {
        if (state_.*field == value)
            return;
        state_.*field = std::forward<V>(value);
        changes_.changed();
    }
    void say(std::optional<std::string> line) { set(&VoiceState::status, std::move(line)); }
    VoiceRoute::Facts facts() const;
    bool openAIReady() const { return state_.settings.openAIEnabled && state_.key.saved; }

    // Reading what is there (VoiceModelRefresh.cpp)
    static Task<> refreshNow(Weak weak, bool force);
    static Task<> readMachine(Weak weak);
    static Task<bool> readDaemon(Weak weak, bool force);
    static Task<> readUsed(Weak weak);
    static Task<> verify(Weak weak);
    static Task<> readKey(Weak weak);
    void useVerified(std::optional<VerifiedDictationApp> verified);
    void settingsRead(VoiceSettingsWire settings, bool known);
    void registerHotkey();

    void beginTalk();
    /// The microphone is this side's, or a clip of it is being turned into text.
    bool isBusyHere() const { return state_.listening || wanted_ || state_.transcribing; }

    // Dictation apps (VoiceModelDictation.cpp)
    static Task<> opened(Weak weak, std::uint64_t opening);
    static Task<> startDictation(Weak weak, Dictation with);
    static Task<> stopDictation(Weak weak, Dictation with);
    static Task<> closeDictation(Dictation with, UnderWay token);
    static Task<> checkAnswer(Weak weak, std::weak_ptr<DictationController> with,
        std::shared_ptr<Clock> clock, std::uint64_t check);
    void endDictation();
    void tellDictation();

    // Recording here (VoiceModelRecording.cpp)
    void beginRecording(VoiceRoute::Kind route);
    static Task<> openMicrophone(Weak weak, std::uint64_t turn);
    static MicRecorder::Ends endsOf(Weak weak, Executor executor, std::uint64_t turn);
    bool mayListen(std::uint64_t turn, bool granted);
    void recordingEnded(std::uint64_t turn, bool lost);
    void finishRecording();
    void dropRecording();
    void freeGate();
    VoiceRoute::Kind routeOfClip() const;
    SpeechPipeline pipeline() const;
    static Task<> transcribe(Weak weak, Recorded clip);
    static Task<std::string> textOf(Dependencies parts, SpeechPipeline pipeline, Recorded clip);
    static Task<> prepareToHear(std::shared_ptr<SpeechEngine> engine);
    static Task<std::string> transcribeHere(
        std::shared_ptr<SpeechEngine> engine, Clip samples, std::string locale);
    bool fallBack(const Outcome<std::string>& outcome, const Recorded& clip);
    void transcribed(Outcome<std::string> outcome);

    // Settings (VoiceModelSettings.cpp)
    static Task<> saveChanges(Weak weak);
    void saved(const std::optional<std::string>& failure);
    void showSettings();
    void changeKey(std::optional<std::string> text);
    static Task<> storeKey(Weak weak, std::optional<std::string> text, std::uint64_t press);
    static Task<> keyRead(Weak weak);
    static Task<> tellEngines(Weak weak);
    static Task<> tryKey(Weak weak, UnderWay token);

    Dependencies parts_;
    VoiceState state_;
    ChangeAnnouncer changes_;
    TaskBag tasks_;
    std::weak_ptr<BarHotkey> hotkey_;
    std::shared_ptr<RecordingGate> gate_ = std::make_shared<RecordingGate>();
    Dictation dictation_;
    std::uint64_t answerCheck_ = 0; // counts the checks for an app's answer, the last of which is good

    std::shared_ptr<MicRecorder> recorder_;
    bool wanted_ = false;                               // a recording is being started
    VoiceRoute::Kind begunOn_ = VoiceRoute::Kind::none; // the route when it began
    std::uint64_t turn_ = 0; // counts recordings and the bar's closings: what is of an older turn is dropped
    std::uint64_t lostTurn_ = 0; // whose device went away
    TaskHandle transcription_, test_;
    const UnderWay underWay_ = std::make_shared<const bool>(true);

    bool barOpen_ = false;
    std::uint64_t opening_ = 0;               // counts the bar's openings
    std::optional<double> lastRefresh_;       // by the clock's uptime
    std::uint64_t refreshes_ = 0, looks_ = 0; // of the daemon, of the app's bundle: the last one counts
    std::map<std::string, bool> teamCache_;   // by the bundle's path

    VoiceSettingsWire confirmed_; // as the daemon has them
    std::deque<VoiceSettingChange> unsaved_;
    bool saving_ = false;
    bool selectionSaved_ = false;  // since the last scan
    std::uint64_t keyPresses_ = 0; // of the settings, on the key: what was read before one is old
};

} // namespace kelvadrome
