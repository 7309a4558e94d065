#pragma once

#include <span>
#include <string>

/// Reading the last lines of the daemon's log. Pure.
namespace kelvadrome::DaemonLog {

/// The line that tells best why the daemon ended: the last one, or, where Node printed the trace of an error,
/// the one that names the error. Fit for a person's eyes on any screen: one line of at most 300 characters,
/// without control characters, and with "…" for what looks like a secret. Empty when nothing was said.
std::string reason(std::span<const std::string> lines);

/// `words` with that reason behind them, without the daemon's own name in front of it.
std::string withReason(std::string words, std::span<const std::string> lines);

} // namespace kelvadrome::DaemonLog
