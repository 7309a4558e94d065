#pragma once

#include "Kelvadrome/model/Collaborators.h"
#include "Kelvadrome/model/DevicesState.h"
#include "Kelvadrome/model/Pasteboard.h"
#include "KelvadromeKit/support/Observation.h"
#include "KelvadromeKit/support/TaskBag.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kelvadrome {

/// Turns answering from a phone on, pairs a phone and unpairs it. One action at a time: while one is under
/// way, another does nothing. Main executor; made with `make`, since its tasks hold it weakly.
class DevicesSettings : public std::enable_shared_from_this<DevicesSettings> {
public:
    /// To be answered with one word or with nothing.
    struct Question {
        std::string title;
        std::string text;
        std::string button;
    };
    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        DaemonClient client;
        std::shared_ptr<RelayConnecting> connector;
        std::shared_ptr<Pasteboard> pasteboard;
        std::function<Task<bool>(Question)> confirm;
    };

    static std::shared_ptr<DevicesSettings> make(Dependencies dependencies);

    const DevicesState& state() const { return state_; }
    [[nodiscard]] Subscription observe(std::function<void()> observer) {
        return changes_.observe(std::move(observer));
    }

    /// While it is looked at, it asks the daemon anew each second; also until a copied link is off the
    /// pasteboard again.
    void look();
    void lookAway() { looking_ = false; }

    void setEnabled(bool on);
    void startPairing();
    /// Puts the link of the attempt on the pasteboard.
    void copy();
    void type(const std::string& text);
    /// Allows only with a whole code.
    void decide(bool allow);
    /// Asks the user first.
    void revoke(const std::string& deviceId);

private:
    explicit DevicesSettings(Dependencies dependencies);

    using Weak = std::weak_ptr<DevicesSettings>;
    using Self = std::shared_ptr<DevicesSettings>;

    void act(const char* name, Task<> action);
    void startTicking();
    static Task<> tick(Weak weak, std::shared_ptr<Clock> clock);
    static Task<> forgetCopied(Weak weak, std::shared_ptr<Clock> clock, std::uint64_t copy);
    static Task<> whileBusy(Self self, Task<> action);
    static Task<> refresh(Self self);
    static Task<> cleanPasteboard(Self self);
    static Task<> enable(Self self, bool on);
    static Task<> pair(Self self);
    static Task<> decideNow(Self self, std::string id, bool allow, std::string code);
    static Task<> ask(Self self, RelayStatus::Device device);
    static Task<> revokeNow(Self self, std::string id);

    bool succeeded(const std::exception_ptr& error);
    /// Takes what answers all questions up to this one.
    void settle(RelayStatus status, std::uint64_t question);
    void endAttempt();

    const Dependencies parts_;
    DevicesState state_;
    ChangeAnnouncer changes_;
    TaskBag tasks_;
    bool looking_ = false;
    bool ticking_ = false;
    std::uint64_t asked_ = 0;   // for the status
    std::uint64_t settled_ = 0; // answers to questions up to this one are out of date
    std::uint64_t copies_ = 0;
};

} // namespace kelvadrome
