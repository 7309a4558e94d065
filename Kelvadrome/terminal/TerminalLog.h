#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// Where the log goes while the panel owns the screen: to the end of a file of mode 0600, and its last lines
/// into memory. The file stays small (see `LogFile`); one that can't be opened costs the file only. Any
/// thread.
class TerminalLog {
public:
    static constexpr std::size_t kept = 20; // lines

    /// Makes the folder when it is missing.
    explicit TerminalLog(std::string folder);

    void append(std::string_view line);
    std::vector<std::string> lastLines() const;
    const std::string& path() const { return path_; }

private:
    void open();

    std::string path_;
    Descriptor file_;
    mutable std::mutex lock_;
    std::deque<std::string> lines_;
};

} // namespace kelvadrome
