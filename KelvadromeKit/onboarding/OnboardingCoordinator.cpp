#include "KelvadromeKit/onboarding/OnboardingCoordinator.h"

#include "KelvadromeKit/page/JS.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

namespace kelvadrome {

namespace {

constexpr const char* folderNotAvailable = "That folder is not available.";
constexpr const char* folderNotUsable = "kelvadrome could not use that folder yet.";

/// A path that isn't UTF-8 can be told neither to the page nor to the daemon.
bool isUsableFolder(const std::string& path) {
    return path.starts_with('/') && Text::isValidUTF8(path) && Files::isFolder(path);
}

std::string folderChosenScript(const std::string& path) {
    return "(function(){var b=window.kelvadrome;if(b&&typeof b.folderChosen==='function'){b.folderChosen(" +
           JS::string(path) + ");return true}return false})()";
}

} // namespace

Task<bool> OnboardingCoordinator::handle(BridgeMessage::Message message) {
    return dealWith(shared_from_this(), std::move(message));
}

Task<bool> OnboardingCoordinator::dealWith(Self self, BridgeMessage::Message message) {
    if (const auto* page = std::get_if<BridgeMessage::Onboarding>(&message)) {
        self->step_ = page->step;
        self->primaryEnabled_ = page->primaryEnabled;
        co_return true;
    }
    if (std::holds_alternative<BridgeMessage::ChooseFolder>(message)) {
        co_await chooseFolder(self);
        co_return true;
    }
    if (std::holds_alternative<BridgeMessage::OnboardingDone>(message)) {
        self->finish();
        co_return true;
    }
    co_return false;
}

void OnboardingCoordinator::finish() {
    finished_ = true;
    const auto host = host_.lock();
    if (!host)
        return;
    host->closeOnboardingWindow();
    host->openMainWindowOnInbox();
}

Task<> OnboardingCoordinator::chooseFolder(Self self) {
    self->lastError_.reset();
    auto picked = co_await attempt(self->picker_->pick(self->home_));
    if (!picked || !*picked)
        co_return;
    const std::string path = **picked;
    if (!isUsableFolder(path)) {
        self->lastError_ = folderNotAvailable;
        co_return;
    }
    self->lastFolder_ = path;
    const bool taken = co_await offerToPage(self->host_, path);
    if (taken)
        co_return; // the page sends it to the daemon
    const auto told = co_await attempt(self->setFolder_(path));
    if (!told) {
        self->lastError_ = folderNotUsable;
        co_return;
    }
    if (const auto host = self->host_.lock())
        host->reloadPage();
}

/// False when there is no page, or one that knows nothing of folders.
Task<bool> OnboardingCoordinator::offerToPage(std::weak_ptr<OnboardingHost> weak, std::string path) {
    const auto host = weak.lock();
    if (!host)
        co_return false;
    auto answer = co_await attempt(host->evaluate(folderChosenScript(path)));
    co_return answer ? *answer : false;
}

OnboardingCoordinator::CloseDecision OnboardingCoordinator::closeRequested() const {
    if (finished_)
        return Close{};
    return ClosePrompt::finishLater;
}

Task<bool> OnboardingCoordinator::mayClose(Ask ask) {
    return askToClose(shared_from_this(), std::move(ask));
}

Task<bool> OnboardingCoordinator::askToClose(Self self, Ask ask) {
    auto decision = self->closeRequested();
    if (std::holds_alternative<Close>(decision))
        co_return true;
    if (std::exchange(self->asking_, true))
        co_return false;
    auto answer = co_await attempt(ask(std::get<ClosePrompt>(std::move(decision))));
    self->asking_ = false;
    co_return answer ? *answer : false;
}

} // namespace kelvadrome
