#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// What `ps -o pid=,pgid=,tpgid=,tty=,comm=` says about one process.
struct ProcFacts {
    std::int64_t pid = 0;
    std::int64_t pgid = 0;
    std::int64_t tpgid = 0;         // the foreground process group of its terminal
    std::optional<std::string> tty; // as ps names it; absent for "??", "?" and "-"
    std::string comm;               // the command without arguments; may be a path and hold blanks

    /// The first line that holds all five columns; absent when there is none.
    static std::optional<ProcFacts> parse(std::string_view output);

    /// The process is in the foreground of a terminal.
    bool foreground() const { return tty && tpgid > 0 && tpgid == pgid; }
    /// The last path component of `comm` is exactly `name`.
    bool isAgent(std::string_view name) const;

    bool operator==(const ProcFacts&) const = default;
};

} // namespace kelvadrome
