#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/delivery/DeliverJob.h"

#include <map>
#include <set>

/// Turns a job into the exact commands to run. All pure; an absent plan means that it can't be done there.
namespace kelvadrome::HostPlan {

/// Absolute paths of tools, by their names. A tool that isn't in it makes the plan absent.
using Bins = std::map<std::string, std::string>;

inline constexpr std::string_view osascript = "/usr/bin/osascript";

/// What must never be typed into; the same names as inside LiveScripts::itermWrite.
const std::set<std::string, std::less<>>& shells();

/// What tmux and herdr call a pane, such as "%3" and "w1:p2", and nothing that could be read as anything
/// else.
bool isTmuxPane(std::string_view ref);
bool isHerdrPane(std::string_view ref);

/// The keystrokes of an answer, in order, each with the pause that follows it.
std::optional<std::vector<RunCommand>> commands(const DeliverJob& job, const Bins& bins);

/// Prints the screen that a screen question stands on.
std::optional<RunCommand> screenRead(const DeliverJob& job, const Bins& bins);

/// One "up", "down" or "enter" on a screen question.
std::optional<RunCommand> navKey(const DeliverJob& job, std::string_view key, const Bins& bins);

/// Starts `argv` in a tmux session of its own.
std::optional<RunCommand> tmuxOpen(
    const DeliverJob& job, const std::vector<std::string>& argv, const Bins& bins);

/// Asks the host what the pane holds; absent where there is nothing to ask.
std::optional<RunCommand> preflight(const DeliverJob& job, const Bins& bins);
/// Whether the preflight's output says that the pane still holds this session.
bool preflightPasses(const DeliverJob& job, std::string_view output);

/// Every pid that herdr names in its JSON, the pane's own shell included.
std::set<std::int64_t> herdrPids(std::string_view output);

/// What a script's verdict means in the user's words; absent for "ok".
std::optional<std::string> scriptRefusal(std::string_view output);

} // namespace kelvadrome::HostPlan
