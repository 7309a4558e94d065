#pragma once

#include "KelvadromeKit/delivery/TerminalApp.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

/// Finds the terminal apps in which agents run, from `ps -axo pid=,ppid=,comm=`.
namespace kelvadrome::TerminalAncestry {

struct Row {
    std::int64_t pid = 0;
    std::int64_t ppid = 0;
    std::string comm;

    bool operator==(const Row&) const = default;
};

/// The executable names of agents, in lower case.
const std::set<std::string, std::less<>>& agents();

/// The table by pid. Lines that don't hold all three columns are skipped.
std::map<std::int64_t, Row> rows(std::string_view output);

/// The terminal apps among the ancestors of agents, looked for at most 12 processes up.
std::set<TerminalApp> hostsWithAgents(std::string_view ps);

} // namespace kelvadrome::TerminalAncestry
