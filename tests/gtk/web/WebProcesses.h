#pragma once

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace kelvadrome::test {

/// The parent and the name of a process, from its stat line: "12 (name) S 1 ...".
struct ProcessLine {
    pid_t parent = 0;
    std::string name;
};

inline ProcessLine lineOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(file, line);
    const auto open = line.find('('), close = line.rfind(')');
    if (close == std::string::npos)
        return {};
    return {std::stoi(line.substr(close + 4)), line.substr(open + 1, close - open - 1)};
}

inline bool descendsFromUs(pid_t pid) {
    while (pid > 1 && pid != getpid())
        pid = lineOf(pid).parent;
    return pid == getpid();
}

/// Sends a signal to WebKit's processes below this one whose name begins so; how many there were. The kernel
/// cuts names to 15 characters.
inline int signalProcesses(const std::string& name, int signal) {
    int reached = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const auto file = entry.path().filename().string();
        if (file.find_first_not_of("0123456789") != std::string::npos)
            continue;
        const auto pid = static_cast<pid_t>(std::stoi(file));
        if (lineOf(pid).name.starts_with(name) && descendsFromUs(pid) && kill(pid, signal) == 0)
            ++reached;
    }
    return reached;
}

} // namespace kelvadrome::test
