// Stands in for an agent in a pane: run under the name "claude", it writes the bytes that it is sent to a
// file.
//   fake_agent LOG              SIGUSR1 makes it a shell, SIGUSR2 moves it out of the terminal's foreground
//   fake_agent LOG trust DIR    first asks whether DIR can be trusted, with the arrow keys and Return
//   fake_agent LOG silent       leaves the line to the terminal, which doesn't show it: a password prompt
//   fake_agent LOG menu         shows a choice and draws nothing of what is typed

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t wanted = 0;

void draw(const std::string& folder, bool trust) {
    std::printf(
        "\033[2J\033[HAccessing workspace:\r\n\r\n%s\r\n\r\nQuick safety check: is this yours?\r\n\r\n"
        "%s1. No, exit\r\n%s2. Yes, I trust this folder\r\n\r\nEnter to confirm - Esc to cancel\r\n",
        folder.c_str(), trust ? "  " : "> ", trust ? "> " : "  ");
    std::fflush(stdout);
}

/// Another group of this session takes the terminal, as when a job is started over a suspended agent.
void leaveForeground() {
    ::signal(SIGTTOU, SIG_IGN);
    const pid_t child = ::fork();
    if (child == 0) {
        ::setpgid(0, 0);
        ::tcsetpgrp(STDIN_FILENO, ::getpgrp());
        for (;;)
            ::pause(); // the terminal's end ends it
    }
}

} // namespace

int main(int count, char** words) {
    for (const int signal : {SIGUSR1, SIGUSR2}) {
        struct sigaction action {};
        action.sa_handler = [](int number) { wanted = number; };
        ::sigaction(signal, &action, nullptr); // without SA_RESTART: the read ends
    }
    termios mode{};
    ::tcgetattr(STDIN_FILENO, &mode);
    const std::string way = count > 2 ? words[2] : "";
    if (way == "silent")
        mode.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    else
        ::cfmakeraw(&mode);
    ::tcsetattr(STDIN_FILENO, TCSANOW, &mode);

    const int log = count > 1 ? ::open(words[1], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600) : -1;
    bool asking = count > 3;
    bool trust = false;
    if (asking)
        draw(words[3], trust);
    else if (way == "menu")
        (void)!::write(STDOUT_FILENO, "Go on?\r\n> Yes\r\n  No", 19);
    else
        (void)!::write(STDOUT_FILENO, "ready", 5);

    for (;;) {
        char bytes[4096];
        const auto size = ::read(STDIN_FILENO, bytes, sizeof bytes);
        if (wanted == SIGUSR1)
            ::execl("/bin/sh", "sh", nullptr);
        if (wanted == SIGUSR2)
            leaveForeground();
        wanted = 0;
        if (size < 0)
            continue;
        if (size == 0)
            return 0;
        const std::string key(bytes, static_cast<std::size_t>(size));
        (void)!::write(log, key.data(), key.size());
        if (!asking)
            continue;
        if (key == "\r" && !trust)
            return 0;
        if (key == "\r") {
            asking = false;
            (void)!::write(STDOUT_FILENO, "\033[2J\033[Hready", 12);
        } else {
            trust = key == "\033[B" || key == "\033OB";
            draw(words[3], trust);
        }
    }
}
