#include "Kelvadrome/platform/linux/session/SystemdAgentService.h"

#include "Kelvadrome/platform/linux/session/UnitTemplate.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr double lookLimit = 3.0; // seconds, as below
constexpr double actLimit = 20.0;

double uptime() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// One word of a unit's command line: quoted, and without a meaning for systemd.
std::string quoted(const std::string& path) {
    std::string result = "\"";
    for (const char c : path) {
        if (c == '"' || c == '\\')
            result += '\\';
        if (c == '%')
            result += '%';
        result += c;
    }
    return result + '"';
}

/// The three doors that systemctl tries. Where none is, starting it only costs time.
bool mayHaveManager(const std::map<std::string, std::string>& environment) {
    const auto& folder = environment.at("XDG_RUNTIME_DIR");
    return environment.contains("DBUS_SESSION_BUS_ADDRESS") || Files::exists(folder + "/systemd/private") ||
           Files::exists(folder + "/bus");
}

std::string reason(const CommandResult& result) {
    if (result.timedOut)
        return "systemctl did not answer";
    const auto words = Text::repairUTF8(Text::trimWhitespace(result.errors));
    if (!words.empty())
        return words;
    return fmt::format("systemctl ended with status {}", result.status);
}

} // namespace

Systemctl systemSystemctl() {
    return [](std::vector<std::string> arguments, double limit) {
        auto environment = Files::processEnvironment();
        // Without a login shell's variables the manager is still where it always is.
        environment.emplace("XDG_RUNTIME_DIR", fmt::format("/run/user/{}", ::getuid()));
        if (!mayHaveManager(environment))
            return CommandResult{.status = 1, .output = {}, .errors = "there is no systemd of this user"};
        arguments.insert(arguments.begin(), "--user");
        return runCommand("/usr/bin/systemctl", arguments, environment, limit);
    };
}

SystemdAgentService::SystemdAgentService(Systemctl systemctl, std::string executable, std::string unitFolder)
    : systemctl_(std::move(systemctl)), executable_(std::move(executable)),
      unitFolder_(std::move(unitFolder)) {}

std::string SystemdAgentService::standardFolder(const std::map<std::string, std::string>& environment) {
    const auto folder = environment.find("XDG_DATA_HOME");
    const auto data = folder != environment.end() && folder->second.starts_with('/')
                          ? folder->second
                          : Files::join(Files::userHome(), ".local/share");
    return Files::join(data, "systemd/user");
}

std::string SystemdAgentService::unitText(const std::string& executable) {
    return Text::replaceAll(unitTemplate, "@EXECUTABLE@", quoted(executable));
}

std::string SystemdAgentService::unitPath() const {
    return Files::join(unitFolder_, unitName);
}

BackgroundServiceStatus SystemdAgentService::status() {
    // "is-enabled" answers from the files alone where no manager runs, so the manager is asked first.
    if (systemctl_({"show", "--property=Version"}, lookLimit).status != 0)
        return BackgroundServiceStatus::notFound;
    const auto answer = systemctl_({"is-enabled", unitName}, lookLimit);
    const auto word = Text::trimWhitespace(answer.output);
    if (word.starts_with("masked"))
        return BackgroundServiceStatus::requiresApproval;
    return word.starts_with("enabled") ? BackgroundServiceStatus::enabled
                                       : BackgroundServiceStatus::notRegistered;
}

void SystemdAgentService::registerService() {
    if (status() == BackgroundServiceStatus::notFound)
        throw AgentServiceError("no systemd of this user answers");
    try {
        Files::makeFolders(unitFolder_, 0700);
        Files::replace(unitPath(), unitText(executable_), 0644, false);
    } catch (const std::system_error& error) {
        throw AgentServiceError(error.what());
    }
    require({"daemon-reload"});
    require({"enable", "--now", unitName});
}

void SystemdAgentService::unregisterService() {
    const double deadline = uptime() + actLimit;
    const auto act = [&](std::vector<std::string> arguments) {
        auto result = systemctl_(std::move(arguments), std::max(deadline - uptime(), 0.1));
        if (result.timedOut)
            throw AgentServiceError::removalTimedOut();
        return result;
    };
    const auto disabled = act({"disable", "--now", unitName});
    // A masked unit can't be disabled, and needn't be: nothing starts it.
    if (disabled.status != 0 && status() != BackgroundServiceStatus::requiresApproval) {
        throw AgentServiceError(reason(disabled));
    }
    if (::unlink(unitPath().c_str()) != 0 && errno != ENOENT) {
        throw AgentServiceError(std::system_error(errno, std::generic_category(), unitPath()).what());
    }
    act({"daemon-reload"});
}

void SystemdAgentService::require(const std::vector<std::string>& arguments) {
    const auto result = systemctl_(arguments, actLimit);
    if (result.status != 0)
        throw AgentServiceError(reason(result));
}

} // namespace kelvadrome
