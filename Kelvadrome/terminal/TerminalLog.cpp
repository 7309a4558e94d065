#include "Kelvadrome/terminal/TerminalLog.h"

#include "KelvadromeKit/support/Files.h"

#include <fmt/chrono.h>

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelvadrome {

TerminalLog::TerminalLog(std::string folder) : path_(Files::join(folder, "kelvadrome.log")) {
    try {
        Files::makeFolders(folder, 0700);
    } catch (const std::system_error&) {
        return;
    }
    struct stat info {};
    if (::lstat(path_.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_size > largest) {
        ::rename(path_.c_str(), (path_ + ".1").c_str());
    }
    file_.reset(::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
}

void TerminalLog::append(std::string_view line) {
    const auto text = fmt::format("{:%Y-%m-%d %H:%M:%S} {}\n", fmt::localtime(std::time(nullptr)), line);
    std::lock_guard guard(lock_);
    lines_.emplace_back(line);
    if (lines_.size() > kept)
        lines_.pop_front();
    if (file_) [[maybe_unused]]
        const auto written = ::write(file_.get(), text.data(), text.size());
}

std::vector<std::string> TerminalLog::lastLines() const {
    std::lock_guard guard(lock_);
    return {lines_.begin(), lines_.end()};
}

} // namespace kelvadrome
