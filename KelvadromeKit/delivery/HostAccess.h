#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/delivery/TerminalApp.h"

#include <functional>

namespace kelvadrome {

/// Whether a terminal app lets itself be scripted; the words of the host report.
enum class HostAccess { ok, waiting, denied, locked, busy };

std::string_view rawValue(HostAccess access);

/// What a list script's result says about access; absent for a failure that says nothing about it.
std::optional<HostAccess> classifyHostAccess(const RunOutput& output, ConsentCode consent, bool screenLocked);

/// How access is looked at without showing anything. `consent` takes a bundle id and may block for a second.
struct HostAccessProbe {
    std::function<ConsentCode(std::string)> consent;
    std::function<bool()> screenLocked;

    /// Has no opinion.
    static HostAccessProbe none();
};

} // namespace kelvadrome
