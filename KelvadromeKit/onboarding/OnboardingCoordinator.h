#pragma once

#include "KelvadromeKit/onboarding/ClosePrompt.h"
#include "KelvadromeKit/onboarding/FolderPicking.h"
#include "KelvadromeKit/onboarding/OnboardingHost.h"
#include "KelvadromeKit/page/BridgeMessage.h"
#include "KelvadromeKit/support/Task.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace kelvadrome {

/// Turns what the setup page says into native acts, and decides whether its window may close. It lives on the
/// main executor, always in a shared pointer; a running task keeps it alive, but not the window, which may go
/// at any time.
class OnboardingCoordinator : public std::enable_shared_from_this<OnboardingCoordinator> {
public:
    struct Close {
        bool operator==(const Close&) const = default;
    };
    /// To close the window at once, or to ask this first.
    using CloseDecision = std::variant<ClosePrompt, Close>;
    /// Tells the daemon the chosen folder's path; throws when it doesn't take it.
    using SetFolder = std::function<Task<>(std::string path)>;
    /// Shows the question on the window; true for `confirm`.
    using Ask = std::function<Task<bool>(ClosePrompt prompt)>;

    /// `home` is the folder that the picker begins in.
    OnboardingCoordinator(std::weak_ptr<OnboardingHost> host, std::shared_ptr<FolderPicking> picker,
        SetFolder setFolder, std::string home)
        : host_(std::move(host)), picker_(std::move(picker)), setFolder_(std::move(setFolder)),
          home_(std::move(home)) {}

    /// Deals with a message of the page; false for one that isn't setup's. Never throws.
    Task<bool> handle(BridgeMessage::Message message);

    CloseDecision closeRequested() const;
    /// The same with the question put to the user: whether the window is to be closed now. A request that
    /// comes while the question stands gets false and asks nothing.
    Task<bool> mayClose(Ask ask);

    /// The page's current step, and whether its main button is enabled.
    const std::optional<std::string>& step() const { return step_; }
    bool primaryEnabled() const { return primaryEnabled_; }
    /// The page said that setup is done.
    bool finished() const { return finished_; }
    /// The folder chosen last.
    const std::optional<std::string>& lastFolder() const { return lastFolder_; }
    /// Why the last choice of a folder came to nothing, in words for the user.
    const std::optional<std::string>& lastError() const { return lastError_; }

private:
    using Self = std::shared_ptr<OnboardingCoordinator>;

    static Task<bool> dealWith(Self self, BridgeMessage::Message message);
    static Task<> chooseFolder(Self self);
    static Task<bool> offerToPage(std::weak_ptr<OnboardingHost> weak, std::string path);
    static Task<bool> askToClose(Self self, Ask ask);
    void finish();

    std::weak_ptr<OnboardingHost> host_;
    std::shared_ptr<FolderPicking> picker_;
    SetFolder setFolder_;
    std::string home_;

    std::optional<std::string> step_;
    bool primaryEnabled_ = false;
    bool finished_ = false;
    bool asking_ = false;
    std::optional<std::string> lastFolder_;
    std::optional<std::string> lastError_;
};

} // namespace kelvadrome
