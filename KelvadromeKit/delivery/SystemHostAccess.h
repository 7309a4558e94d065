#pragma once

#include "KelvadromeKit/delivery/AutomationPrompter.h"
#include "KelvadromeKit/delivery/HostAccess.h"

#include <functional>
#include <memory>

namespace kelvadrome {

/// The probes over a system's own calls. To be destroyed before the executors that await its questions: with
/// it, those that are still open end without an answer, and whoever awaits them is let go.
class SystemHostAccess {
public:
    /// What a system offers. Where scripting needs nobody's consent, the calls about it are left empty.
    struct Calls {
        std::function<ConsentCode(std::string)> check;   // shows nothing, may hang
        std::function<ConsentCode(std::string)> request; // may show the question; returns when it is answered
        std::function<bool()> screenLocked;              // returns at once
    };

    explicit SystemHostAccess(Calls calls);
    ~SystemHostAccess();
    SystemHostAccess(const SystemHostAccess&) = delete;
    SystemHostAccess& operator=(const SystemHostAccess&) = delete;

    HostAccessProbe probe() const;
    AutomationProbe automation() const;

private:
    class Questions;

    std::shared_ptr<Questions> questions_;
    std::function<ConsentCode(std::string)> consent_;
    std::function<Task<ConsentCode>(std::string)> request_;
    std::function<bool()> screenLocked_;
};

} // namespace kelvadrome
