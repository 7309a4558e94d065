#include "KelvadromeKit/delivery/TerminalAncestry.h"

#include "KelvadromeKit/support/Text.h"

namespace kelvadrome::TerminalAncestry {

namespace {

constexpr int maxSteps = 12;

std::optional<TerminalApp> appOf(std::string_view comm) {
    const auto has = [comm](std::string_view part) { return comm.find(part) != std::string_view::npos; };
    if (has("iTermServer") || has("/iTerm.app/") || has("/iTerm2.app/") || comm.ends_with("iTerm2")) {
        return TerminalApp::iterm2;
    }
    if (has("/Terminal.app/"))
        return TerminalApp::terminal;
    return std::nullopt;
}

std::optional<TerminalApp> hostOf(const Row& agent, const std::map<std::int64_t, Row>& table) {
    const Row* row = &agent;
    for (int step = 0; step < maxSteps; ++step) {
        if (const auto app = appOf(row->comm))
            return app;
        if (row->ppid < 2 || row->ppid == row->pid)
            return std::nullopt;
        const auto parent = table.find(row->ppid);
        if (parent == table.end())
            return std::nullopt;
        row = &parent->second;
    }
    return std::nullopt;
}

} // namespace

const std::set<std::string, std::less<>>& agents() {
    static const std::set<std::string, std::less<>> names{"claude", "codex", "grok", "gemini", "qwen",
        "copilot", "cursor-agent", "droid", "opencode", "amp", "aider", "pi"};
    return names;
}

std::map<std::int64_t, Row> rows(std::string_view output) {
    std::map<std::int64_t, Row> table;
    for (const auto line : Text::split(output, '\n', Text::EmptyPieces::drop)) {
        const auto fields = Text::split(Text::trimWhitespace(line), ' ', Text::EmptyPieces::drop, 2);
        if (fields.size() < 3)
            continue;
        const auto pid = Text::parseInteger(fields[0]);
        const auto ppid = Text::parseInteger(fields[1]);
        if (pid && ppid)
            table.insert_or_assign(*pid, Row{*pid, *ppid, std::string(fields[2])});
    }
    return table;
}

std::set<TerminalApp> hostsWithAgents(std::string_view ps) {
    const auto table = rows(ps);
    std::set<TerminalApp> hosts;
    for (const auto& [pid, row] : table) {
        if (!agents().contains(Text::lowercasedASCII(Text::lastPathComponent(row.comm))))
            continue;
        if (const auto host = hostOf(row, table))
            hosts.insert(*host);
    }
    return hosts;
}

} // namespace kelvadrome::TerminalAncestry
