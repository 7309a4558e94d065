#pragma once

#include "KelvadromeKit/support/Task.h"

#include <string>

namespace kelvadrome {

/// What setup needs of the window that shows its page. Main executor.
class OnboardingHost {
public:
    virtual ~OnboardingHost() = default;

    /// Runs a script in the page: true when its result is the boolean true. May throw.
    virtual Task<bool> evaluate(std::string script) = 0;
    virtual void reloadPage() = 0;
    /// Closes the window at once, without asking.
    virtual void closeOnboardingWindow() = 0;
    /// Ends setup in the model, which then opens the main window on the inbox.
    virtual void openMainWindowOnInbox() = 0;
};

} // namespace kelvadrome
