#pragma once

#include "KelvadromeKit/delivery/AutomationPrompter.h"
#include "KelvadromeKit/delivery/HostAccess.h"

#include <functional>

namespace kelvadrome {

/// The probes over a system's own calls.
class SystemHostAccess {
public:
    /// What a system offers. Where scripting needs nobody's consent, the calls about it are left empty.
    struct Calls {
        std::function<ConsentCode(std::string)> check;   // shows nothing, may hang
        std::function<ConsentCode(std::string)> request; // may show the question; returns when it is answered
        std::function<bool()> screenLocked;              // returns at once
    };

    explicit SystemHostAccess(Calls calls);

    HostAccessProbe probe() const;
    AutomationProbe automation() const;

private:
    std::function<ConsentCode(std::string)> consent_;
    std::function<Task<ConsentCode>(std::string)> request_;
    std::function<bool()> screenLocked_;
};

} // namespace kelvadrome
