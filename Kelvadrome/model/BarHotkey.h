#pragma once

#include "Kelvadrome/model/BarKeyState.h"
#include "Kelvadrome/model/CommandPanelController.h"
#include "KelvadromeKit/bar/GlobalHotkey.h"
#include "KelvadromeKit/bar/HotkeyGesture.h"
#include "KelvadromeKit/support/Defaults.h"

#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// Joins the global key with the bar: a tap opens or closes it, a hold talks. Main executor; made with
/// `make`, since its tasks hold it weakly.
class BarHotkey : public std::enable_shared_from_this<BarHotkey> {
public:
    /// The label of the key, among the defaults. Absent, or not a key, it is the standard one. It holds until
    /// the settings of voice, which the daemon keeps, bring their own (`use`), and is then the same as
    /// theirs.
    static constexpr const char* labelKey = "KDBarHotkey";

    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        std::shared_ptr<Defaults> defaults;
        std::shared_ptr<GlobalHotkey> key; // whose callbacks are this object's from now on
        std::shared_ptr<BarVoice> voice;
        std::weak_ptr<CommandPanelController> panel;
    };

    static std::shared_ptr<BarHotkey> make(Dependencies dependencies);
    BarHotkey(const BarHotkey&) = delete;
    BarHotkey& operator=(const BarHotkey&) = delete;
    ~BarHotkey() { tasks_.close(); }

    /// Registers the key that the defaults name now, in place of the one of before.
    void registerKey();
    /// The key that the daemon's settings name, from now on the one that the defaults name too. One that was
    /// asked for already isn't asked for again, since the user may just be holding it, or has refused it;
    /// except when another application had it.
    void use(const std::string& label);
    const BarKeyState& state() const { return state_; }
    /// Told after `state` has changed.
    [[nodiscard]] Subscription observe(std::function<void()> observer) {
        return changes_.observe(std::move(observer));
    }

    // What the key does. The system's end calls these through GlobalHotkey.
    void press();
    void release();

private:
    explicit BarHotkey(Dependencies dependencies);

    static HotkeySpec wanted(const Defaults& defaults);
    static Task<> registerNow(std::weak_ptr<BarHotkey> weak, std::shared_ptr<GlobalHotkey> key,
        HotkeySpec spec, std::uint64_t turn);
    void stands(HotkeyOutcome outcome);
    static Task<> tickLater(std::weak_ptr<BarHotkey> weak, std::shared_ptr<Clock> clock);
    void apply(const HotkeyGesture::Effects& effects);

    Dependencies parts_;
    BarKeyState state_;
    std::uint64_t turn_ = 0; // counts registrations, so that the answer to an older one is known as such
    HotkeyGesture gesture_;
    ChangeAnnouncer changes_;
    TaskBag tasks_;
};

} // namespace kelvadrome
