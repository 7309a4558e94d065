#include "Kelvadrome/terminal/TerminalHost.h"

namespace kelvadrome {

void TerminalHost::setBadge(std::optional<std::string> label) {
    with_.screen->setTitle(label ? "(" + *label + ") kelvadrome" : "kelvadrome");
}

void TerminalHost::presentOnboarding(PageSession::Credentials, bool firstRun, std::string, bool) {
    with_.page->show("Open this page to set kelvadrome up:",
        std::string("/onboarding?first_run=") + (firstRun ? "1" : "0"));
}

void TerminalHost::openURL(std::string url) {
    if (with_.openURL) {
        with_.openURL(std::move(url));
    } else {
        with_.board->setNote("Open this page: " + url);
    }
}

void TerminalHost::activateApplication(std::string) {
    with_.board->setNote("From a terminal another program's window can't be brought to the front.");
}

Task<> TerminalHost::criticalAlert(std::string title, std::string text, std::string button) {
    PanelAlert alert{std::move(title), std::move(text), std::move(button)};
    const auto show = [this, &alert](Completion<bool> dismissed) {
        alerts_.push_back({std::move(alert), dismissed});
        if (alerts_.size() == 1)
            with_.board->setAlert(alerts_.front().alert);
        return [dismissed] { dismissed(false); };
    };
    co_await suspendUntil<bool>(show);
}

void TerminalHost::acknowledge() {
    if (alerts_.empty())
        return;
    alerts_.front().dismissed(true);
    alerts_.pop_front();
    with_.board->setAlert(alerts_.empty() ? std::nullopt : std::optional(alerts_.front().alert));
}

} // namespace kelvadrome
