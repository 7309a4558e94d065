#include "KelvadromeKit/daemon/HeadlessCommand.h"

#include "KelvadromeKit/daemon/DataHome.h"
#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/LogFile.h"

#include <fmt/format.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelvadrome::HeadlessCommand {

namespace {

using Status = BackgroundServiceStatus;

constexpr std::int32_t osFailure = 71;            // EX_OSERR
constexpr std::int32_t configurationFailure = 78; // EX_CONFIG
constexpr std::int32_t awaitsApproval = 3;

void tryToMakeFolders(const std::string& path) {
    try {
        Files::makeFolders(path, 0700);
    } catch (const std::system_error&) {
        // The daemon starts all the same, and says itself what it can't do without.
    }
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (auto& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

std::int32_t exitStatus(bool on, Status status) {
    const bool gone = status == Status::notRegistered || status == Status::notFound;
    if (!on)
        return gone ? 0 : 1;
    if (status == Status::requiresApproval)
        return awaitsApproval;
    return gone ? 1 : 0;
}

} // namespace

std::optional<std::int32_t> run(const std::vector<std::string>& arguments, const World& world) {
    if (arguments.size() < 2)
        return std::nullopt;
    const auto& word = arguments[1];
    if (word == DaemonLaunchPlan::flag)
        return execDaemon(world);
    if (word == "--register-background")
        return background(true, world);
    if (word == "--unregister-background")
        return background(false, world);
    if (word == "--background-status") {
        world.out(fmt::format("{}\n", rawValue(world.agentService()->status())));
        return 0;
    }
    return std::nullopt;
}

std::int32_t execDaemon(const World& world) {
    const auto resources = world.resources();
    const auto plan =
        resources ? DaemonLaunchPlan::make(*resources, world.environment, world.userHome) : std::nullopt;
    if (!plan) {
        world.err("kelvadrome: the bundled daemon or Node is missing\n");
        return configurationFailure;
    }
    const auto home = DaemonEnvironment::resolveHome(std::nullopt, plan->environment);
    if (const auto refusal = DataHome::refusal(home)) {
        world.err("kelvadrome: " + *refusal + "\n");
        return configurationFailure;
    }
    tryToMakeFolders(Files::parent(plan->stdoutPath));
    // The daemon itself keeps them small once it runs; one that never comes up writes a line at each try,
    // too.
    for (const auto& log : {plan->stdoutPath, plan->stderrPath})
        LogFile::makeRoom(log);
    redirect(STDOUT_FILENO, plan->stdoutPath);
    redirect(STDERR_FILENO, plan->stderrPath);

    tryToMakeFolders(home);
    if (::chdir(home.c_str()) != 0) {
        // The daemon is told its home by name and runs anywhere.
    }
    const int error = world.replaceProcess(*plan);
    world.err(fmt::format("kelvadrome: could not start {}: errno {}\n", plan->executable, error));
    return osFailure;
}

int replaceProcess(const DaemonLaunchPlan& plan) {
    auto arguments = plan.arguments;
    std::vector<std::string> environment;
    for (const auto& [name, value] : plan.environment)
        environment.push_back(name + "=" + value);
    ::execve(plan.executable.c_str(), pointers(arguments).data(), pointers(environment).data());
    return errno;
}

void redirect(int descriptor, const std::string& path) {
    // Without O_NONBLOCK a pipe put in the file's place would hold this process for ever.
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    Descriptor file(::open(path.c_str(), flags, 0600));
    if (!file)
        return;
    struct stat info {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return;
    ::fchmod(file.get(), 0600);
    ::fcntl(file.get(), F_SETFL, O_APPEND);
    if (file.get() == descriptor) {
        // It was closed, so that the file took its number, and is to stay open across exec.
        ::fcntl(file.release(), F_SETFD, 0);
        return;
    }
    ::dup2(file.get(), descriptor);
}

std::int32_t background(bool on, const World& world) {
    if (const auto refusal = on ? DataHome::refusal(DaemonEnvironment::defaultHome()) : std::nullopt) {
        world.err("kelvadrome: " + *refusal + "\n");
        return 1;
    }
    auto& defaults = world.defaults();
    const BackgroundService service{.service = world.agentService(),
        .legacy = LegacyLaunchAgent::inHome(world.userHome),
        .storageRoot = DaemonEnvironment::defaultHome(),
        .effects = world.background,
        .build = world.build.value_or("0")};
    const auto state = on ? service.prepareAfterInstall(defaults) : service.set(false, defaults);
    if (state.migratedTo)
        world.out(fmt::format("moved the old LaunchAgent to {}\n", *state.migratedTo));
    world.out(fmt::format("{}\n", rawValue(state.status)));
    if (state.error)
        world.err(*state.error + "\n");
    defaults.synchronize();
    return state.error ? 1 : exitStatus(on, state.status);
}

} // namespace kelvadrome::HeadlessCommand
