#include "Kelvadrome/platform/linux/core/FileDefaults.h"
#include "Kelvadrome/platform/linux/core/Resources.h"
#include "Kelvadrome/platform/linux/session/LaunchctlEffects.h"
#include "Kelvadrome/platform/linux/session/SystemdAgentService.h"
#include "KelvadromeKit/daemon/HeadlessCommand.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <optional>
#include <string>
#include <vector>

using namespace kelvadrome;

namespace {

constexpr const char* help = R"(Usage: kelvadrome [OPTION] [-KEY VALUE ...]

Without an option the application starts: on a display the desktop, if it is installed, otherwise the
panel in this terminal.

  --terminal               the panel in this terminal, on a display too
  --kelvadromed            become the daemon (the login item runs this)
  --register-background    register the login item: 0 enabled, 3 waits for the user, 1 failed
  --unregister-background  remove the login item
  --background-status      print notRegistered, enabled, requiresApproval or notFound
  --version, --help

-KEY VALUE sets a default for this run only, such as -KDHome FOLDER.
)";

void write(std::FILE* stream, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

HeadlessCommand::World headlessWorld(const std::vector<std::string>& arguments) {
    const auto environment = Files::processEnvironment();
    // Made when a command first asks, so that becoming the daemon reads no settings.
    const auto defaults = std::make_shared<std::unique_ptr<Defaults>>();
    return {
        .resources = [] { return resourceDirectory(executablePath()); },
        .environment = environment,
        .userHome = Files::userHome(),
        .agentService =
            [environment] {
                return std::make_shared<SystemdAgentService>(
                    systemSystemctl(), executablePath(), SystemdAgentService::standardFolder(environment));
            },
        .background = BackgroundService::Effects::live(linuxLaunchctl(systemProgram(), systemSystemctl())),
        .build = KELVADROME_VERSION,
        .defaults = [=]() -> Defaults& {
            if (!*defaults) {
                *defaults =
                    std::make_unique<FileDefaults>(FileDefaults::standardPath(environment), arguments);
            }
            return **defaults;
        },
        .out = [](std::string_view text) { write(stdout, text); },
        .err = [](std::string_view text) { write(stderr, text); },
        .replaceProcess = HeadlessCommand::replaceProcess,
    };
}

/// Front ends are modules beside the executable, or in ../lib/kelvadrome when installed, so that nothing of a
/// toolkit is loaded before one is wanted.
std::optional<std::string> modulePath(const std::string& name) {
    const auto folder = Files::parent(executablePath());
    for (const auto& place : {folder, Files::join(Files::parent(folder), "lib/kelvadrome")}) {
        auto path = Files::join(place, "libkelvadrome-" + name + ".so");
        if (Files::exists(path))
            return path;
    }
    return std::nullopt;
}

std::optional<std::string> frontEnd(const std::vector<std::string>& arguments) {
    const auto environment = Files::processEnvironment();
    const auto named = [&](const char* variable) {
        const auto found = environment.find(variable);
        return found != environment.end() && !found->second.empty();
    };
    const bool display = named("WAYLAND_DISPLAY") || named("DISPLAY");
    const bool terminal = std::ranges::find(arguments, "--terminal") != arguments.end();
    if (display && !terminal) {
        if (auto desktop = modulePath("desktop"))
            return desktop;
    }
    return modulePath("terminal");
}

int startFrontEnd(const std::string& path, int argc, char** argv) {
    void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const entry = module ? ::dlsym(module, "kelvadromeRunFrontEnd") : nullptr;
    if (!entry) {
        write(stderr, std::string("kelvadrome: the front end could not be loaded: ") + ::dlerror() + "\n");
        return 1;
    }
    return reinterpret_cast<int (*)(int, char**)>(entry)(argc, argv);
}

} // namespace

int main(int argc, char** argv) {
    // Whoever started us may ignore it, and then no child's status would ever come back.
    ::signal(SIGCHLD, SIG_DFL);
    const std::vector<std::string> arguments(argv, argv + argc);
    if (const auto status = HeadlessCommand::run(arguments, headlessWorld(arguments)))
        return *status;

    const std::string first = arguments.size() > 1 ? arguments[1] : "";
    if (first == "--help") {
        write(stdout, help);
        return 0;
    }
    if (first == "--version") {
        write(stdout, "kelvadrome " KELVADROME_VERSION "\n");
        return 0;
    }
    const auto module = frontEnd(arguments);
    if (!module) {
        write(stderr, "kelvadrome: no front end is installed beside this program\n");
        return 1;
    }
    return startFrontEnd(*module, argc, argv);
}
