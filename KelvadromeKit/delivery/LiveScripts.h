#pragma once

#include "KelvadromeKit/delivery/HostSession.h"

#include <string_view>
#include <vector>

/// The AppleScript texts for `osascript -e <script> <arguments>`. They are constants: whatever varies goes in
/// as an argument, so that nothing an agent or a daemon says can become script.
namespace kelvadrome::LiveScripts {

inline constexpr std::string_view itermBundle = "com.googlecode.iterm2";
inline constexpr std::string_view terminalBundle = "com.apple.Terminal";

/// No arguments. Print a line per session: tty, ref, title and "true", "false" or "unknown", separated by
/// tabs.
extern const std::string_view itermList;
extern const std::string_view terminalList;

/// Arguments: tty path, session id or "", mode ("key", "text", "cr", "esc", "up", "down"), payload. Looks
/// again at what runs in the session, types once if it isn't a shell, and prints a verdict; see
/// HostPlan::scriptRefusal.
extern const std::string_view itermWrite;
/// Arguments: tty path, session id or "". Prints a verdict or the screen.
extern const std::string_view itermRead;
/// Arguments: tty path, session id, new name. Prints a verdict.
extern const std::string_view itermLabel;
/// Argument: tty path. Print "ok" or "missing".
extern const std::string_view itermFocus;
extern const std::string_view terminalFocus;
/// Argument: a line of ShellLine::open, run by the shell of a new window. Prints "ok". No other script ends a
/// line.
extern const std::string_view itermOpen;

/// The sessions in a list script's output. Lines that aren't sound are skipped.
std::vector<HostSession> parseList(std::string_view output, std::string_view host);

} // namespace kelvadrome::LiveScripts
