#pragma once

#include "KelvadromeKit/support/Observation.h"
#include "KelvadromeKit/support/Task.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// What the command bar knows of voice: how the user may speak to it now, and where the spoken words arrive.
/// Main executor; no task throws.
class BarVoice {
public:
    virtual ~BarVoice() = default;

    /// A spoken text, for the bar's field. Set by the bar's controller.
    std::function<void(std::string text)> onText;

    /// What happens now, such as "Listening."; absent when there is nothing to tell.
    virtual std::optional<std::string> status() const = 0;
    /// Why there is only typing; absent when there isn't.
    virtual std::optional<std::string> textModeLine() const = 0;
    /// The standing line: how to talk, or that there is only typing.
    virtual std::string hint() const = 0;
    /// Whether the microphone is a button.
    virtual bool micUsable() const = 0;
    virtual bool recording() const = 0;
    /// Whether a hold of the global key can record.
    virtual bool holdCapable() const = 0;

    virtual Task<> micPressed() = 0;
    virtual Task<> holdStart() = 0;
    virtual Task<> holdStop() = 0;
    virtual Task<> barOpened() = 0;
    virtual Task<> barClosed() = 0;
    /// The words in the bar have changed: a dictation app types what it heard into the field.
    virtual void textChanged() = 0;

    /// Told after any of the above answers otherwise.
    [[nodiscard]] virtual Subscription observe(std::function<void()> observer) = 0;
};

/// One of its tasks, with the voice kept alive meanwhile.
inline Task<> callVoice(std::shared_ptr<BarVoice> voice, Task<> (BarVoice::*call)()) {
    co_await (voice.get()->*call)();
}

/// Where there is no voice: nothing to press, and the bar is for typing.
class NoVoice final : public BarVoice {
public:
    std::optional<std::string> status() const override { return std::nullopt; }
    std::optional<std::string> textModeLine() const override { return std::nullopt; }
    std::string hint() const override {
        return "Type your request, or add a dictation app in Settings, Voice.";
    }
    bool micUsable() const override { return false; }
    bool recording() const override { return false; }
    bool holdCapable() const override { return false; }

    Task<> micPressed() override { co_return; }
    Task<> holdStart() override { co_return; }
    Task<> holdStop() override { co_return; }
    Task<> barOpened() override { co_return; }
    Task<> barClosed() override { co_return; }
    void textChanged() override {}

    Subscription observe(std::function<void()>) override { return {}; }
};

} // namespace kelvadrome
