#include "KelvadromeKit/voice/DictationController.h"

namespace kelvadrome {

using Gate = RecordingGate::Kind;

namespace {

/// Holds a flag for as long as it lives.
class Settling {
public:
    explicit Settling(bool& flag) : flag_(flag) { flag_ = true; }
    ~Settling() { flag_ = false; }
    Settling(const Settling&) = delete;
    Settling& operator=(const Settling&) = delete;

private:
    bool& flag_;
};

} // namespace

std::optional<std::string> DictationController::text(Status status, const std::string& app) {
    switch (status) {
    case Status::listening:
        return "Listening in " + app + ".";
    case Status::textReceived:
        return "Text received.";
    case Status::noAnswer:
        return app + " did not answer.";
    case Status::modeSwitchFailed:
        return app + " did not switch modes.";
    case Status::busy:
        return "1 recording is already running.";
    case Status::idle:
        break;
    }
    return std::nullopt;
}

std::shared_ptr<DictationController> DictationController::make(VerifiedDictationApp target, Parts parts) {
    struct Controller final : DictationController {
        Controller(VerifiedDictationApp t, Parts p) : DictationController(std::move(t), std::move(p)) {}
    };
    return std::make_shared<Controller>(std::move(target), std::move(parts));
}

DictationController::DictationController(VerifiedDictationApp target, Parts parts)
    : target_(std::move(target)), parts_(std::move(parts)) {}

DictationController::~DictationController() {
    leaveGate();
}

void DictationController::abandon() {
    abandoned_ = true;
    leaveGate();
    if (starting_)
        stopAfterStart_ = true;
}

/// The gate may be held by another controller's recording, so only who recorded gives it back.
void DictationController::leaveGate() {
    if (std::exchange(recording_, false))
        parts_.gate->end(Gate::urlApp);
}

/// False without a word to the app when it can't do that.
Task<bool> DictationController::open(Self self, std::string action, std::optional<std::string> fill) {
    if (self->abandoned_ || !self->target_.can(action))
        co_return false;
    auto url = DictationURL::render(self->target_.app, action, fill);
    if (!url)
        co_return false;
    auto opening = self->parts_.opener->open(std::move(*url), self->target_.bundleURL, false);
    auto opened = co_await attempt(std::move(opening));
    co_return opened&&* opened;
}

// Recording

Task<> DictationController::micPressed() {
    return toggle(shared_from_this());
}

Task<bool> DictationController::start() {
    return startNow(shared_from_this());
}

Task<> DictationController::stop() {
    return stopNow(shared_from_this());
}

Task<> DictationController::escape() {
    return endRecording(shared_from_this());
}

Task<> DictationController::toggle(Self self) {
    if (self->recording_) {
        co_await stopNow(self);
    } else {
        co_await startNow(self);
    }
}

Task<> DictationController::endRecording(Self self) {
    if (self->recording_ || self->starting_)
        co_await stopNow(self);
}

Task<bool> DictationController::startNow(Self self) {
    if (self->recording_ || self->starting_ || self->abandoned_ || !self->target_.canStartStop())
        co_return false;
    if (!self->parts_.gate->begin(Gate::urlApp)) {
        self->status_ = Status::busy;
        co_return false;
    }
    self->starting_ = true;
    self->stopAfterStart_ = false;
    auto opening = open(self, "start", std::nullopt);
    auto opened = co_await attempt(std::move(opening)); // cancelled, too: the gate must be free again
    self->starting_ = false;
    if (!opened || !*opened) {
        self->parts_.gate->end(Gate::urlApp);
        self->status_ = Status::noAnswer;
        co_return false;
    }
    self->recording_ = true;
    self->status_ = Status::listening;
    if (std::exchange(self->stopAfterStart_, false))
        co_await stopNow(self);
    co_return true;
}

Task<> DictationController::stopNow(Self self) {
    if (self->starting_) {
        self->stopAfterStart_ = true;
        co_return;
    }
    if (!self->recording_)
        co_return;
    self->leaveGate();
    auto stopping = open(self, "stop", std::nullopt);
    co_await std::move(stopping);
}

// The mode

Task<> DictationController::barOpened(bool useKelvadromeMode) {
    ++opening_;
    modeWanted_ = useKelvadromeMode;
    return settleMode(shared_from_this());
}

Task<> DictationController::barClosed() {
    modeWanted_ = false;
    return close(shared_from_this());
}

Task<> DictationController::recoverAfterCrash() {
    recoveryDue_ = true;
    return settleMode(shared_from_this());
}

Task<> DictationController::close(Self self) {
    co_await endRecording(self);
    co_await settleMode(self);
}

Task<> DictationController::settleMode(Self self) {
    if (self->settling_)
        co_return; // what runs sees to this, too
    const Settling settling(self->settling_);
    for (;;) {
        if (std::exchange(self->recoveryDue_, false)) {
            co_await recover(self);
        } else if (self->modeWanted_ && !self->switchedFrom_ && self->triedFor_ != self->opening_) {
            self->triedFor_ = self->opening_;
            co_await switchMode(self);
        } else if (!self->modeWanted_ && self->switchedFrom_) {
            auto restoring = restoreIfStillOurs(self, *std::exchange(self->switchedFrom_, std::nullopt));
            co_await std::move(restoring);
        } else {
            co_return;
        }
    }
}

Task<> DictationController::switchMode(Self self) {
    if (self->target_.app.id != DictationURLApp::superwhisper().id || !self->target_.can("mode"))
        co_return;
    auto reading = self->parts_.modes->active();
    const auto previous = co_await std::move(reading);
    if (!previous || !DictationURL::validFill(*previous) || *previous == ownMode || !self->modeWanted_)
        co_return;
    self->parts_.journal->setPendingPrevious(previous); // first: a crash from here on can be repaired
    auto opening = open(self, "mode", ownMode);
    const bool opened = co_await std::move(opening);
    if (!opened) {
        self->parts_.journal->setPendingPrevious(std::nullopt);
        self->status_ = Status::modeSwitchFailed;
        co_return;
    }
    self->switchedFrom_ = previous;
    auto reporting = self->parts_.report(*previous, false);
    co_await std::move(reporting);
}

/// A mode that the user chose meanwhile is never overwritten.
Task<> DictationController::restoreIfStillOurs(Self self, std::string previous) {
    auto reading = self->parts_.modes->active();
    const auto now = co_await std::move(reading);
    if (now != ownMode) {
        self->parts_.journal->setPendingPrevious(std::nullopt);
        co_return;
    }
    auto opening = open(self, "mode", previous);
    const bool opened = co_await std::move(opening);
    if (!opened) {
        self->status_ = Status::modeSwitchFailed; // the journal keeps it, and the next start tries again
        co_return;
    }
    self->parts_.journal->setPendingPrevious(std::nullopt);
    auto reporting = self->parts_.report(std::move(previous), true);
    co_await std::move(reporting);
}

/// Of another app's controller the journal is none of its business: it waits for the app that it is of.
Task<> DictationController::recover(Self self) {
    if (self->switchedFrom_ || self->target_.app.id != DictationURLApp::superwhisper().id)
        co_return;
    auto previous = self->parts_.journal->pendingPrevious();
    if (!previous)
        co_return;
    if (DictationURL::validFill(*previous)) {
        auto restoring = restoreIfStillOurs(self, std::move(*previous));
        co_await std::move(restoring);
    } else {
        self->parts_.journal->setPendingPrevious(std::nullopt);
    }
}

} // namespace kelvadrome
