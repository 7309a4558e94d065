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
constexpr std::size_t largestUnit = 1 << 16;       // bytes
constexpr const char* unitState = "UnitFileState"; // the properties that `look` asks for
constexpr const char* active = "ActiveState";
constexpr const char* activeDetail = "SubState";

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

/// The program that a unit's text, as we write it, runs.
std::optional<std::string> programIn(std::string_view unitText) {
    constexpr std::string_view key = "\nExecStart=\"";
    const auto found = unitText.find(key);
    if (found == std::string_view::npos)
        return std::nullopt;
    std::string path;
    for (auto rest = unitText.substr(found + key.size()); !rest.empty(); rest.remove_prefix(1)) {
        if (rest[0] == '"')
            return path;
        if ((rest[0] == '\\' || rest[0] == '%') && rest.size() > 1)
            rest.remove_prefix(1);
        path += rest[0];
    }
    return std::nullopt;
}

/// The three ways to a manager that systemctl tries. Where none is, starting systemctl only costs time.
bool mayHaveManager(const std::map<std::string, std::string>& environment) {
    const auto& folder = environment.at("XDG_RUNTIME_DIR");
    return environment.contains("DBUS_SESSION_BUS_ADDRESS") || Files::exists(folder + "/systemd/private") ||
           Files::exists(folder + "/bus");
}

bool isMasked(const std::string& state) {
    return state.starts_with("masked"); // or "masked-runtime"
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
    const auto text = Text::replaceAll(unitTemplate, "@EXECUTABLE@", quoted(executable));
    return Text::replaceAll(text, "@PATH@", Text::replaceAll(executable, "%", "%%"));
}

std::string SystemdAgentService::unitPath() const {
    return Files::join(unitFolder_, unitName);
}

std::optional<std::string> SystemdAgentService::unitOnDisk() const {
    return Files::read(unitPath(), largestUnit);
}

/// What the manager says of the unit, in one call: each start of systemctl takes tens of milliseconds.
/// "show" needs a manager, unlike "is-enabled", which without one answers from the files.
std::optional<SystemdAgentService::Properties> SystemdAgentService::look() {
    const auto answer = systemctl_(
        {"show", fmt::format("--property={},{},{}", unitState, active, activeDetail), unitName}, lookLimit);
    if (answer.status != 0)
        return std::nullopt;
    Properties properties;
    for (const auto line : Text::split(answer.output, '\n', Text::EmptyPieces::drop)) {
        if (const auto equals = line.find('='); equals != std::string_view::npos)
            properties.emplace(line.substr(0, equals), line.substr(equals + 1));
    }
    return properties;
}

BackgroundServiceStatus SystemdAgentService::status() {
    auto unit = look();
    if (!unit)
        return BackgroundServiceStatus::notFound;
    const auto& state = (*unit)[unitState];
    if (isMasked(state) && Files::exists(unitPath()))
        return BackgroundServiceStatus::requiresApproval;
    return state.starts_with("enabled") ? BackgroundServiceStatus::enabled
                                        : BackgroundServiceStatus::notRegistered;
}

bool SystemdAgentService::isRunning() {
    auto unit = look();
    if (!unit)
        return false;
    const auto& state = (*unit)[active];
    // Between two tries of a program that fails at once nothing runs.
    const bool waits = (*unit)[activeDetail].starts_with("auto-restart");
    return (state == "active" || state == "activating" || state == "reloading") && !waits;
}

AgentRegistration SystemdAgentService::registration() {
    const auto text = unitOnDisk();
    if (!text)
        return AgentRegistration::elsewhere; // enabled from another folder
    if (*text == unitText(executable_))
        return AgentRegistration::current;
    const auto program = programIn(*text);
    return program && *program != executable_ && Files::isExecutable(*program) ? AgentRegistration::elsewhere
                                                                               : AgentRegistration::outdated;
}

void SystemdAgentService::registerService() {
    auto unit = look();
    if (!unit)
        throw AgentServiceError("no systemd of this user answers");
    const auto text = unitText(executable_);
    const bool changed = unitOnDisk() != text;
    try {
        Files::makeFolders(unitFolder_, 0700);
        if (changed)
            Files::replace(unitPath(), text, 0644, false);
    } catch (const std::system_error& error) {
        throw AgentServiceError(error.what());
    }
    require({"daemon-reload"});
    // By its path a masked unit too is enabled: it is so from the moment when the user lifts the mask.
    require({"enable", unitPath()});
    if (!isMasked((*unit)[unitState]))
        require({changed ? "restart" : "start", unitName});
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
