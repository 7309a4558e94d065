#pragma once

#include "KelvadromeKit/daemon/ChildProcess.h"
#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Descriptor.h"

#include <memory>

namespace kelvadrome {

/// Children that live long. A thread for each reads its output, reaps it and makes the callbacks. Destroying
/// the launcher ends these threads: children that still run by then go on unwatched. Not to be destroyed from
/// a callback.
class PosixChildLauncher final : public ChildLauncher {
public:
    PosixChildLauncher();
    ~PosixChildLauncher() override;

    std::shared_ptr<ChildProcess> launch(Command command, Callbacks callbacks) override;
    Output output(std::string executable, std::vector<std::string> arguments, double limit) override;

private:
    const Descriptor closing_; // readable from the destructor on
    BackgroundPool watchers_;  // last: its threads use what is above
};

} // namespace kelvadrome
