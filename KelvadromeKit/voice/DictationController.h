#pragma once

#include "KelvadromeKit/voice/DictationEnds.h"
#include "KelvadromeKit/voice/ModeJournal.h"
#include "KelvadromeKit/voice/RecordingGate.h"
#include "KelvadromeKit/voice/VerifiedDictationApp.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// Starts and stops one verified dictation app, and gives it the mode of this program while the bar is open.
/// Main executor; made with `make`. Its tasks keep it alive to their end, so that what was started is also
/// stopped; none throws, and each may be called while others are under way.
class DictationController : public std::enable_shared_from_this<DictationController> {
public:
    static constexpr const char* ownMode = "kelvadrome";

    enum class Status { idle, listening, textReceived, noAnswer, modeSwitchFailed, busy };
    /// What the bar says; absent for `idle`. `app` is the app's name.
    static std::optional<std::string> text(Status status, const std::string& app);

    /// Told when the app's mode was changed from `previous`, or given back.
    using Report = std::function<Task<>(std::string previous, bool restored)>;
    struct Parts {
        std::shared_ptr<URLOpening> opener;
        std::shared_ptr<ModeKeyReading> modes;
        std::shared_ptr<ModeJournal> journal;
        std::shared_ptr<RecordingGate> gate;
        Report report;
    };

    static std::shared_ptr<DictationController> make(VerifiedDictationApp target, Parts parts);
    DictationController(const DictationController&) = delete;
    DictationController& operator=(const DictationController&) = delete;
    ~DictationController();

    const VerifiedDictationApp& target() const { return target_; }
    bool recording() const { return recording_; }
    bool starting() const { return starting_; }
    Status status() const { return status_; }
    void setStatus(Status status) { status_ = status; }
    const std::optional<std::string>& switchedFrom() const { return switchedFrom_; }

    Task<> micPressed();
    /// True when the app was told to start.
    Task<bool> start();
    Task<> stop();
    /// Ends a recording that runs or is about to.
    Task<> escape();
    Task<> barOpened(bool useKelvadromeMode);
    Task<> barClosed();
    /// Gives back a mode that a process of before had changed and not given back.
    Task<> recoverAfterCrash();
    /// The app is no longer proved to be the real one: nothing is opened from now on, also not to stop it.
    void abandon();

private:
    using Self = std::shared_ptr<DictationController>;

    DictationController(VerifiedDictationApp target, Parts parts);

    static Task<bool> open(Self self, std::string action, std::optional<std::string> fill);
    void leaveGate();
    static Task<> toggle(Self self);
    static Task<bool> startNow(Self self);
    static Task<> stopNow(Self self);
    static Task<> endRecording(Self self);
    static Task<> close(Self self);
    static Task<> settleMode(Self self);
    static Task<> switchMode(Self self);
    static Task<> restoreIfStillOurs(Self self, std::string previous);
    static Task<> recover(Self self);

    VerifiedDictationApp target_;
    Parts parts_;
    bool recording_ = false;
    bool starting_ = false;
    bool stopAfterStart_ = false;
    bool abandoned_ = false;
    Status status_ = Status::idle;
    std::optional<std::string> switchedFrom_;

    // The mode's changes go one after the other, since each reads it, thinks and changes it.
    bool settling_ = false;
    bool modeWanted_ = false;
    bool recoveryDue_ = false;
    std::uint64_t opening_ = 0; // counts the bar's openings, each of which tries once
    std::uint64_t triedFor_ = 0;
};

} // namespace kelvadrome
