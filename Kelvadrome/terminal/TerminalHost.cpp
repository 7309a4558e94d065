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
    auto shown = show({std::move(title), std::move(text), std::move(button)});
    co_await std::move(shown);
}

Task<bool> TerminalHost::confirm(std::string title, std::string text, std::string yes, std::string no) {
    return show({std::move(title), std::move(text), std::move(yes), std::move(no)});
}

Task<bool> TerminalHost::show(PanelAlert alert) {
    const auto begin = [this, &alert](Completion<bool> answered) {
        alerts_.push_back({std::move(alert), answered});
        showFirst();
        return [answered] { answered(false); };
    };
    co_return co_await suspendUntil<bool>(begin);
}

void TerminalHost::showFirst() {
    with_.board->setAlert(alerts_.empty() ? std::nullopt : std::optional(alerts_.front().alert));
}

void TerminalHost::answer(bool yes) {
    if (alerts_.empty())
        return;
    alerts_.front().answered(yes);
    alerts_.pop_front();
    showFirst();
}

void TerminalHost::agreeToQuestions() {
    std::erase_if(alerts_, [](const Waiting& waiting) {
        if (waiting.alert.refuse)
            waiting.answered(true);
        return waiting.alert.refuse.has_value();
    });
    showFirst();
}

} // namespace kelvadrome
