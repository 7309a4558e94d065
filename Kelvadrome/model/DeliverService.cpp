#include "Kelvadrome/model/DeliverService.h"

#include "KelvadromeKit/delivery/CrewLabels.h"
#include "KelvadromeKit/delivery/LiveScripts.h"
#include "KelvadromeKit/delivery/Presence.h"
#include "KelvadromeKit/delivery/TerminalAncestry.h"
#include "KelvadromeKit/support/Text.h"

#include <boost/json/array.hpp>

namespace kelvadrome {

namespace {

constexpr int claimWaitMs = 8000;
constexpr double pauseWithoutRoute = 30.0; // seconds, as all times here
constexpr double pauseAfterError = 2.0;
constexpr double beat = 5.0;
constexpr double repeatAfter = 20.0;
constexpr double psLimit = 3.0;
constexpr double labelLimit = 5.0;
constexpr std::size_t maxSessions = 400;
constexpr std::size_t maxLabels = 12; // of one pass

bool isMissingRoute(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& e) {
        return e.isMissingRoute();
    } catch (...) {
        return false;
    }
}

/// The daemon's last word on a job, after all tests made here: it may have been withdrawn or claimed
/// elsewhere.
Task<std::optional<std::string>> askToStart(std::shared_ptr<PageSession> session, std::string jobId) {
    boost::json::object body{{"job_id", jobId}, {"outcome", "start"}};
    auto reply = co_await attempt(session->post<DeliverReportOut>("/v1/deliver/report", std::move(body)));
    if (!reply)
        co_return "the daemon did not confirm the job";
    if (reply->proceed == true)
        co_return std::nullopt;
    co_return reply->reason.value_or("the job is no longer valid");
}

boost::json::object hostReport(const LiveExecutor::Hosts& hosts) {
    boost::json::array sessions;
    for (const auto& session : hosts.sessions) {
        if (sessions.size() == maxSessions)
            break;
        sessions.push_back(session.wire());
    }
    boost::json::object access;
    for (const auto& [host, word] : hosts.access)
        access[host] = rawValue(word);
    return {{"hosts", std::move(sessions)}, {"access", std::move(access)}};
}

Task<> autoRequest(std::shared_ptr<AutomationPrompter> prompter, TerminalApp app) {
    co_await prompter->autoRequestIfNeeded(app, true);
}

} // namespace

DeliverService::DeliverService(Dependencies dependencies)
    : with_(std::move(dependencies)), tasks_(with_.executor) {}

void DeliverService::start() {
    if (std::exchange(started_, true))
        return;
    tasks_.launch("delivery", claimLoop(weak_from_this(), with_.session, with_.clock));
    tasks_.launch("terminal hosts", hostsLoop(weak_from_this(), with_.clock));
}

void DeliverService::stop() {
    tasks_.close();
}

Task<> DeliverService::claimLoop(
    std::weak_ptr<DeliverService> weak, std::shared_ptr<PageSession> session, std::shared_ptr<Clock> clock) {
    while (!weak.expired()) {
        boost::json::object body{{"wait_ms", claimWaitMs}};
        auto claim = co_await attempt(session->post<DeliverClaimOut>("/v1/deliver/claim", std::move(body)));
        if (!claim) {
            const double pause = isMissingRoute(claim.error()) ? pauseWithoutRoute : pauseAfterError;
            co_await clock->sleep(pause);
            continue;
        }
        for (auto& job : claim->jobs) {
            const auto self = weak.lock();
            if (!self || self->finishing_)
                co_return;
            // What escapes a job, such as a machine without a thread to spare, is that job's end only.
            co_await attempt(self->seeThrough(std::move(job)));
        }
    }
}

Task<> DeliverService::finish(double limit) {
    using namespace asio::experimental::awaitable_operators;
    const auto self = shared_from_this();
    finishing_ = true;
    if (busy_) {
        const auto start = [this](auto completion) {
            onIdle_ = completion;
            return [completion] { completion(false); };
        };
        auto idle = suspendUntil<bool>(start);
        auto limited = with_.clock->sleep(limit);
        auto either = std::move(idle) || std::move(limited);
        co_await std::move(either);
    }
    stop();
}

Task<> DeliverService::seeThrough(DeliverJob job) {
    busy_ = true;
    auto outcome = co_await attempt(handle(std::move(job)));
    busy_ = false;
    if (onIdle_)
        std::exchange(onIdle_, {})(true);
    outcome.take();
}

Task<> DeliverService::handle(DeliverJob job) {
    const auto credentials = co_await with_.session->current();
    std::set<std::string> presenceTags;
    if (credentials)
        presenceTags.insert(Presence::tag(credentials->cookieValue));
    LiveExecutor::Start start = [session = with_.session, id = job.id] { return askToStart(session, id); };
    auto live = with_.live;
    if (with_.runnerFor)
        live.runner = with_.runnerFor(job);
    const auto outcome = co_await live.perform(job, presenceTags, with_.clock->now(), start);
    lastOutcome_ = job.type + " " + outcome.outcome;

    auto report = outcome.wire();
    report["job_id"] = job.id;
    // Sent once: if it is lost, the daemon lets the job expire.
    co_await attempt(with_.session->post<AnyDecodable>("/v1/deliver/report", std::move(report)));
}

Task<> DeliverService::hostsLoop(std::weak_ptr<DeliverService> weak, std::shared_ptr<Clock> clock) {
    for (;;) {
        if (const auto self = weak.lock()) {
            co_await attempt(self->reportHosts());
            co_await attempt(self->labelTabs());
        } else {
            co_return;
        }
        co_await clock->sleep(beat);
    }
}

Task<> DeliverService::reportHosts() {
    const bool iterm = with_.apps->isRunning(std::string(LiveScripts::itermBundle));
    const bool terminal = with_.apps->isRunning(std::string(LiveScripts::terminalBundle));
    auto hosts = co_await with_.live.hostsAndAccess(iterm, terminal, with_.probe);
    co_await askWhereAgentsRun(hosts.access);

    if (hosts == lastHosts_ && with_.clock->uptime() - lastHostsSent_ <= repeatAfter)
        co_return;
    auto report = hostReport(hosts);
    const auto sent =
        co_await attempt(with_.session->post<AnyDecodable>("/v1/live/hosts", std::move(report)));
    if (!sent)
        co_return;
    lastHosts_ = std::move(hosts);
    lastHostsSent_ = with_.clock->uptime();
}

/// Lets the system's question come up, but only for an app in which an agent runs.
Task<> DeliverService::askWhereAgentsRun(std::map<std::string, HostAccess> access) {
    std::vector<TerminalApp> waiting;
    for (const auto app : allTerminalApps) {
        const auto found = access.find(std::string(rawValue(app)));
        if (found != access.end() && found->second == HostAccess::waiting)
            waiting.push_back(app);
    }
    if (waiting.empty())
        co_return;
    RunCommand ps{"/bin/ps", {"-axo", "pid=,ppid=,comm="}, 0};
    const auto output = co_await with_.live.runner->run(std::move(ps), psLimit);
    const auto withAgents = TerminalAncestry::hostsWithAgents(output.stdoutText);
    for (const auto app : waiting) {
        // A task of its own: the question may stay open for minutes.
        if (withAgents.contains(app))
            tasks_.launch("automation question", autoRequest(with_.prompter, app));
    }
}

Task<> DeliverService::labelTabs() {
    if (lastHosts_.sessions.empty() || !with_.apps->isRunning(std::string(LiveScripts::itermBundle)))
        co_return;
    boost::json::object all;
    auto live = co_await attempt(with_.session->post<CrewLabelList>("/v1/sessions/live", std::move(all)));
    if (!live)
        co_return;
    auto actions =
        CrewLabels::plan(live->sessions, lastHosts_.sessions, labelled_, live->crewLabels.value_or(true));
    if (actions.size() > maxLabels)
        actions.resize(maxLabels);
    for (const auto& [tty, ref, name] : actions) {
        RunCommand label{std::string(HostPlan::osascript),
            {"-e", std::string(LiveScripts::itermLabel), "/dev/" + tty, ref, name}, 0};
        const auto output = co_await with_.live.runner->run(std::move(label), labelLimit);
        if (output.succeeded() && Text::trimWhitespace(output.stdoutText) == "ok")
            labelled_[ref] = name;
    }
}

} // namespace kelvadrome
