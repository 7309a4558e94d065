#include "tests/live/desktop/Program.h"

#include "KelvadromeKit/support/Text.h"

#include <csignal>
#include <stdexcept>
#include <sys/prctl.h>

namespace kelvadrome::test {

namespace {

/// The texts as GLib wants them, for as long as they live.
std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const auto& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> lines(const Program::Environment& environment) {
    std::vector<std::string> lines;
    for (const auto& [name, value] : environment)
        lines.push_back(name + "=" + value);
    return lines;
}

void endWithParent(gpointer) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

} // namespace

Program::Program(
    const std::vector<std::string>& words, const Environment& environment, const std::string& log) {
    const OwnedObject<GSubprocessLauncher> launcher(
        g_subprocess_launcher_new(static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDERR_MERGE)));
    const auto variables = lines(environment);
    g_subprocess_launcher_set_environ(launcher.get(), pointers(variables).data());
    g_subprocess_launcher_set_stdout_file_path(launcher.get(), log.c_str());
    g_subprocess_launcher_set_child_setup(launcher.get(), &endWithParent, nullptr, nullptr);
    GError* error = nullptr;
    process_.reset(g_subprocess_launcher_spawnv(launcher.get(), pointers(words).data(), &error));
    if (!process_) {
        const OwnedError owned(error);
        throw std::runtime_error(error->message);
    }
    // Absent when the program has ended already: GLib reaps it in a thread of its own.
    if (const char* identifier = g_subprocess_get_identifier(process_.get()))
        pid_ = static_cast<pid_t>(std::atoi(identifier));
}

Program::~Program() {
    g_subprocess_force_exit(process_.get());
    g_subprocess_wait(process_.get(), nullptr, nullptr);
}

bool Program::running() const {
    return g_subprocess_get_identifier(process_.get()) != nullptr;
}

void Program::signal(int number) {
    g_subprocess_send_signal(process_.get(), number);
}

std::optional<int> Program::exitStatus() const {
    if (running() || !g_subprocess_get_if_exited(process_.get()))
        return std::nullopt;
    return g_subprocess_get_exit_status(process_.get());
}

std::string output(const std::vector<std::string>& words, const Program::Environment& environment) {
    const auto variables = lines(environment);
    char* written = nullptr;
    int status = 0;
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDERR_TO_DEV_NULL);
    const bool ran = g_spawn_sync(nullptr, pointers(words).data(), pointers(variables).data(), flags, nullptr,
        nullptr, &written, nullptr, &status, nullptr);
    const OwnedText owned(written);
    return ran && status == 0 && written ? std::string(Text::trimWhitespace(written)) : std::string();
}

} // namespace kelvadrome::test
