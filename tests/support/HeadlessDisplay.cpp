#include "tests/support/HeadlessDisplay.h"

#include "KelvadromeKit/support/Descriptor.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvadrome::test {

namespace {

/// The server picks a number that is free and writes it, with a line end, when it is ready.
[[noreturn]] void becomeServer(int number) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDERR_FILENO);
    dup2(number, STDOUT_FILENO);
    // Without -noreset it starts anew when its last client goes, and throws out whoever is just coming.
    execlp("Xvfb", "Xvfb", "-noreset", "-displayfd", "1", "-screen", "0", "1280x1000x24", "-nolisten", "tcp",
        nullptr);
    _exit(127);
}

} // namespace

HeadlessDisplay::HeadlessDisplay() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        problem_ = std::strerror(errno);
        return;
    }
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    server_ = fork();
    if (server_ == 0)
        becomeServer(writing.get());
    writing.reset();
    std::string number;
    std::getline(std::ifstream("/dev/fd/" + std::to_string(reading.get())), number);
    if (number.empty()) {
        problem_ = "Xvfb could not be started; is the package xvfb installed?";
        return;
    }
    setenv("DISPLAY", (":" + number).c_str(), 1);
    setenv("GDK_BACKEND", "x11", 1);
    unsetenv("WAYLAND_DISPLAY");
}

HeadlessDisplay::~HeadlessDisplay() {
    if (server_ <= 0)
        return;
    kill(server_, SIGTERM);
    waitpid(server_, nullptr, 0);
}

} // namespace kelvadrome::test
