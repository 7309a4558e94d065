#include "KelvadromeKit/delivery/LiveExecutor.h"
#include "KelvadromeKit/delivery/LiveScripts.h"

#include <algorithm>
#include <iterator>

namespace kelvadrome {

namespace {

constexpr double listLimit = 5.0; // seconds

RunCommand listCommand(TerminalApp app) {
    const auto script = app == TerminalApp::iterm2 ? LiveScripts::itermList : LiveScripts::terminalList;
    return {std::string(HostPlan::osascript), {"-e", std::string(script)}, 0};
}

} // namespace

Task<LiveExecutor::Hosts> LiveExecutor::hostsAndAccess(
    bool itermRunning, bool terminalRunning, HostAccessProbe probe) const {
    Hosts result;
    for (const auto app : allTerminalApps) {
        const bool running = app == TerminalApp::iterm2 ? itermRunning : terminalRunning;
        if (!running)
            continue;
        const std::string host(rawValue(app));
        const std::string bundle(bundleId(app));
        if (probe.consent(bundle) == consentNotAsked) {
            result.access[host] = HostAccess::waiting;
            continue;
        }
        auto list = listCommand(app);
        const auto output = co_await runner->run(std::move(list), listLimit);
        if (output.status == 0) {
            auto sessions = LiveScripts::parseList(output.stdoutText, host);
            std::ranges::move(sessions, std::back_inserter(result.sessions));
            result.access[host] = HostAccess::ok;
            continue;
        }
        const auto consent = probe.consent(bundle);
        if (const auto access = classifyHostAccess(output, consent, probe.screenLocked()))
            result.access[host] = *access;
    }
    co_return result;
}

Task<std::vector<HostSession>> LiveExecutor::hosts(bool itermRunning, bool terminalRunning) const {
    auto found = co_await hostsAndAccess(itermRunning, terminalRunning, HostAccessProbe::none());
    co_return std::move(found.sessions);
}

} // namespace kelvadrome
