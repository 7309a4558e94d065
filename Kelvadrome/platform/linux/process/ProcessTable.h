#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The kernel's process table, read from /proc. All block for well below a millisecond, but for `group`,
/// which takes a few where many processes run. Any thread.
namespace kelvadrome::ProcessTable {

struct Row {
    std::int64_t pid = 0;
    std::int64_t parent = 0;
    std::int64_t group = 0;
    std::int64_t foregroundGroup = 0; // of its terminal; -1 without one
    std::optional<std::string> tty;   // "pts/3"
    char state = '?';                 // as ps prints it: "T" is stopped, "Z" ended
    std::string comm;                 // at most 15 bytes
    std::uint64_t started = 0;        // clock ticks since the machine started
    std::uint64_t stackStart = 0;     // another one after an exec; 0 where it may not be read
    std::uint64_t argumentsStart = 0; // likewise

    bool operator==(const Row&) const = default;

    bool ended() const { return state == 'Z' || state == 'X'; }
    bool stopped() const { return state == 'T' || state == 't'; }
};

/// The text of /proc/PID/stat; absent when it is none.
std::optional<Row> parse(std::string_view stat);
/// A process; absent when there is none with this number.
std::optional<Row> row(std::int64_t pid);
/// The processes of a group, in no order.
std::vector<Row> group(std::int64_t id);

/// The words of a process's command line; none when they can't be read.
std::vector<std::string> arguments(std::int64_t pid);
/// One variable of the environment that a process was started with.
std::optional<std::string> variable(std::int64_t pid, std::string_view name);

/// What a process has to do with a terminal.
enum class Hold {
    none,
    asOutput, // only as one of its standard outputs
    asInput,  // as its standard input, or it has opened "/dev/tty", as a prompt for a password does
    hidden    // another user's process
};
Hold holdOn(std::int64_t pid, std::string_view tty);
/// It waits in a read of a terminal at this moment; never true where the kernel doesn't tell.
bool waitsForTerminal(std::int64_t pid);
/// One of its standard streams is another device that goes by the same name, as in a container.
bool hasNamesake(std::int64_t pid, std::string_view tty);

} // namespace kelvadrome::ProcessTable
