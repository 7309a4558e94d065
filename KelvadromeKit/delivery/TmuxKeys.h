#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Commands that look and type in one turn of the tmux server. tmux handles one command list at a time, so
/// that nothing that the list compares can change before its key goes out. All pure. tmux 3.2 or later.
namespace kelvadrome::TmuxKeys {

/// What a pane is, and how it takes keys.
struct Look {
    std::string tty; // "/dev/pts/3"
    std::string panePid;
    bool dead = false;
    bool inMode = false; // copy mode and its like: keys go to tmux
    bool inputOff = false;
    bool synchronized = false; // keys go into every pane of the window
    std::string serverStart;
    std::string serverPid;
    std::string command; // the program in the foreground
    // When somebody last typed in this pane, in seconds since 1970, for each session that shows it.
    std::vector<std::int64_t> typed;
    std::int64_t now = 0; // the server's time, as `typed`

    bool operator==(const Look&) const = default;

    /// Somebody typed in the pane within the last second.
    bool typedJustNow() const;
};

/// Prints a look at a pane; absent where `tty` ("pts/3") is no name that can stand in a format.
std::optional<RunCommand> look(const std::string& tmux, const std::string& pane, const std::string& tty);
/// Absent for a pane that isn't there, and where a name could not be compared.
std::optional<Look> parseLook(std::string_view output);

/// Why a pane as it is takes no keys, or passes them on, in the user's words; absent when it takes them.
std::optional<std::string> stateRefusal(const Look& look);

/// A tmux command that prints the pane's screen with its colours, by which a suggestion of the agent's
/// differs from what was typed.
std::vector<std::string> captureWords(const std::string& pane);
/// The same without colours; a last line gives the pane's width in columns.
std::vector<std::string> menuWords(const std::string& pane);

/// What must still be so when a key goes out.
struct Condition {
    Look look;                      // what was seen; `now` takes no part
    std::vector<std::string> lines; // of the screen, or parts of them, each of which must stand there
    double sent = 0;                // wall time in seconds since 1970
    double limit = 0;               // seconds after `sent` at which the key has come too late
};

/// Begins what `guarded` ends: a client of the server that carries out `reading`, a command that prints (none
/// if empty), prints the line `ready`, and then carries out what it is given as its input. So between a look
/// and the key passes no more time than one line takes to the client.
RunCommand waiting(
    const RunCommand& keys, const std::string& ready, const std::vector<std::string>& reading = {});

/// `keys`, a send-keys command, as a line for that client: types under the condition and prints "ok", or
/// types nothing and prints what it saw. Absent for keys of another form.
std::optional<std::string> guarded(const RunCommand& keys, const Condition& condition);

/// The literal text that a send-keys command types; absent for named keys.
std::optional<std::string> literalText(const RunCommand& keys);

/// What came of a guarded command.
struct Verdict {
    enum class Kind { typed, refused, unknown };
    Kind kind = Kind::unknown;   // "unknown": the key may have gone in
    std::string words;           // why not, in the user's words
    bool typedMeanwhile = false; // that somebody typed in the pane is all that speaks against it
};
/// `output` is what the client said after its line `ready`. `given`: it got its line.
Verdict verdict(const RunOutput& output, const Condition& condition, bool given);

} // namespace kelvadrome::TmuxKeys
