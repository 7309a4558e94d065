#include "Kelvadrome/terminal/TerminalLog.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/LogFile.h"

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
    open();
}

void TerminalLog::open() {
    LogFile::makeRoom(path_);
    file_.reset(::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
}

void TerminalLog::append(std::string_view line) {
    const auto text = fmt::format("{:%Y-%m-%d %H:%M:%S} {}\n", fmt::localtime(std::time(nullptr)), line);
    std::lock_guard guard(lock_);
    lines_.emplace_back(line);
    if (lines_.size() > kept)
        lines_.pop_front();
    if (!file_)
        return;
    [[maybe_unused]] const auto written = ::write(file_.get(), text.data(), text.size());
    if (struct stat info{}; ::fstat(file_.get(), &info) == 0 && info.st_size > LogFile::largest)
        open();
}

std::vector<std::string> TerminalLog::lastLines() const {
    std::lock_guard guard(lock_);
    return {lines_.begin(), lines_.end()};
}

} // namespace kelvadrome
