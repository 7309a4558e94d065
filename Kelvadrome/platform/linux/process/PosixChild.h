#pragma once

#include "KelvadromeKit/daemon/ChildProcess.h"

#include <memory>

namespace kelvadrome {

/// Children by posix_spawn, each in a session of its own. One thread, begun with the first child, reads their
/// output and reaps them; it makes the callbacks. Destroying the launcher ends that thread: children that
/// still run by then go on unwatched. Not to be destroyed from a callback.
class PosixChildLauncher final : public ChildLauncher {
public:
    PosixChildLauncher();
    ~PosixChildLauncher() override;

    std::shared_ptr<ChildProcess> launch(Command command, Callbacks callbacks) override;
    std::optional<std::string> output(
        std::string executable, std::vector<std::string> arguments, double limit) override;

private:
    class Watcher;
    std::unique_ptr<Watcher> watcher_;
};

} // namespace kelvadrome
