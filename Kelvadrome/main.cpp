#include "Kelvadrome/platform/linux/core/FileDefaults.h"
#include "Kelvadrome/platform/linux/core/Resources.h"
#include "Kelvadrome/platform/linux/session/LaunchctlEffects.h"
#include "Kelvadrome/platform/linux/session/SystemdAgentService.h"
#include "KelvadromeKit/daemon/HeadlessCommand.h"
#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

using namespace kelvadrome;

namespace {

constexpr int usageError = 2;
constexpr const char* help = R"(Usage: kelvadrome [OPTION] [-KEY VALUE ...]

Without an option the application starts: on a display that answers the desktop, if it is installed,
otherwise the panel in this terminal.

  --terminal               the panel in this terminal, on a display too
  --bar                    the command bar, on a display: in the running application, or a new one
  --kelvadromed            become the daemon (the login item runs this)
  --register-background    register the login item: 0 enabled, 3 waits for the user, 1 failed
  --unregister-background  remove the login item
  --background-status      print notRegistered, enabled, requiresApproval or notFound
  --version
  -h, --help

-KEY VALUE sets a default for this run only, such as -KDHome FOLDER. An address that begins with kelvadrome: is opened.
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

/// The variables that name a display, as "DISPLAY=:0"; empty without one.
std::string displayNames() {
    const auto environment = Files::processEnvironment();
    std::string names;
    for (const auto* variable : {"WAYLAND_DISPLAY", "DISPLAY"}) {
        const auto found = environment.find(variable);
        if (found == environment.end() || found->second.empty())
            continue;
        names += (names.empty() ? "" : " or ") + found->first + "=" + found->second;
    }
    return names;
}

/// A front end, loaded for the rest of the process.
class FrontEnd {
public:
    explicit FrontEnd(const std::string& path) : module_(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {}

    /// Null when the module, or that function in it, isn't there.
    template <class Function>
    Function* find(const char* name) const {
        return reinterpret_cast<Function*>(module_ ? ::dlsym(module_, name) : nullptr);
    }

private:
    void* module_;
};

int fail(const std::string& words, int status = 1) {
    write(stderr, "kelvadrome: " + words + "\n");
    return status;
}

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
    return std::ranges::find(words, word) != words.end();
}

/// What the defaults take for the key of a value: "-KDHome", but neither "--terminal" nor "-1".
bool isKey(std::string_view word) {
    return word.size() > 1 && word[0] == '-' && word[1] != '-' && !(word[1] >= '0' && word[1] <= '9');
}

/// "https" of "https://example.org"; empty for a word that is no address.
std::string_view schemeOf(std::string_view word) {
    const auto colon = word.find(':');
    if (colon == std::string_view::npos || word.find_first_of("/?#") < colon)
        return {};
    return word.substr(0, colon);
}

/// What is wrong with the arguments of a start of the application, if anything is. A word that is neither an
/// option nor an address is left alone.
std::optional<std::string> wrongArgument(const std::vector<std::string>& arguments) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const auto& word = arguments[i];
        if (word.starts_with("--") && !isOneOf(word, {"--terminal", "--bar"})) {
            const bool headless = isOneOf(word,
                {"--kelvadromed", "--register-background", "--unregister-background", "--background-status"});
            return headless ? word + " must be the first argument." : "There is no option " + word + ".";
        }
        if (isKey(word)) {
            if (i + 1 == arguments.size() || arguments[i + 1].starts_with("--") || isKey(arguments[i + 1]))
                return word + " needs a value.";
            ++i;
        } else if (const auto scheme = schemeOf(word);
                   !scheme.empty() && Text::lowercasedASCII(scheme) != "kelvadrome") {
            return "Only addresses that begin with kelvadrome: can be opened, not " + word + ".";
        }
    }
    return std::nullopt;
}

int notLoaded() {
    const auto* const reason = ::dlerror();
    return fail(std::string("the front end could not be loaded: ") + (reason ? reason : "it is not whole"));
}

using Run = int(int, char**);

/// `noDisplay` is empty unless the panel stands in for a desktop whose display doesn't answer.
int startPanel(int argc, char** argv, const std::string& noDisplay) {
    const auto path = modulePath("terminal");
    if (!path)
        return fail(noDisplay.empty() ? "no front end is installed beside this program" : noDisplay);
    const FrontEnd panel(*path);
    if (noDisplay.empty()) {
        const auto run = panel.find<Run>("kelvadromeRunFrontEnd");
        return run ? run(argc, argv) : notLoaded();
    }
    const auto run = panel.find<int(int, char**, const char*)>("kelvadromeRunWithoutDisplay");
    return run ? run(argc, argv, (noDisplay + ", so the panel is shown here.").c_str()) : notLoaded();
}

int startFrontEnd(int argc, char** argv) {
    const auto given = [&](std::string_view option) {
        return std::find(argv, argv + argc, option) != argv + argc;
    };
    const bool terminal = given("--terminal");
    const auto display = displayNames();
    const auto path = display.empty() || terminal ? std::nullopt : modulePath("desktop");
    if (!path && given("--bar"))
        return fail("--bar needs a display and the desktop.");
    if (!path)
        return startPanel(argc, argv, {});
    const FrontEnd desktop(*path);
    const auto answers = desktop.find<bool()>("kelvadromeDisplayAnswers");
    const auto run = desktop.find<Run>("kelvadromeRunFrontEnd");
    if (!answers || !run)
        return notLoaded();
    if (answers())
        return run(argc, argv);
    const auto noDisplay = "No display answers at " + display;
    if (given("--bar"))
        return fail(noDisplay + ".");
    if (!::isatty(STDOUT_FILENO))
        return fail(noDisplay + ", and standard output is no terminal for the panel.");
    return startPanel(argc, argv, noDisplay);
}

} // namespace

int main(int argc, char** argv) {
    // Whoever started us may ignore it, and then no child's status would ever come back.
    ::signal(SIGCHLD, SIG_DFL);
    const std::vector<std::string> arguments(argv, argv + argc);
    if (const auto status = HeadlessCommand::run(arguments, headlessWorld(arguments)))
        return *status;

    const std::string first = arguments.size() > 1 ? arguments[1] : "";
    if (isOneOf(first, {"--help", "-h"})) {
        write(stdout, help);
        return 0;
    }
    if (first == "--version") {
        write(stdout, "kelvadrome " KELVADROME_VERSION "\n");
        return 0;
    }
    if (const auto wrong = wrongArgument(arguments))
        return fail(*wrong + " See kelvadrome --help.", usageError);
    return startFrontEnd(argc, argv);
}
