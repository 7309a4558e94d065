#pragma once

#include "Kelvadrome/platform/linux/process/PosixCommand.h"
#include "KelvadromeKit/daemon/BackgroundService.h"

namespace kelvadrome {

/// Runs "systemctl --user" with these further arguments for at most `limit` seconds.
using Systemctl = std::function<CommandResult(std::vector<std::string> arguments, double limit)>;

Systemctl systemSystemctl();

/// The login item as a unit of the user's systemd: enabled; not registered (a manager answers, but there is
/// no unit, or it is disabled); in need of approval (registered and masked, which only the user lifts); not
/// found (no manager answers).
class SystemdAgentService final : public AgentService {
public:
    static constexpr const char* unitName = "com.kelvadrome.mac.daemon.service";

    /// `executable` is what the unit runs; `unitFolder` is where it is put.
    SystemdAgentService(Systemctl systemctl, std::string executable, std::string unitFolder);

    /// systemd/user in XDG_DATA_HOME, or in ~/.local/share. Not the configuration folder: a unit file of that
    /// name there would take the place of the user's mask.
    static std::string standardFolder(const std::map<std::string, std::string>& environment);
    /// The unit's text.
    static std::string unitText(const std::string& executable);

    BackgroundServiceStatus status() override;
    void registerService() override;
    /// Gives up after 20 seconds.
    void unregisterService() override;
    /// Reads the unit's file; asks no manager.
    AgentRegistration registration() override;
    bool isRunning() override;

private:
    using Properties = std::map<std::string, std::string>;

    std::string unitPath() const;
    std::optional<std::string> unitOnDisk() const;
    std::optional<Properties> look();
    void require(const std::vector<std::string>& arguments);

    const Systemctl systemctl_;
    const std::string executable_;
    const std::string unitFolder_;
};

} // namespace kelvadrome
