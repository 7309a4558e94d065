#include "KelvadromeKit/daemon/DaemonSupervisor.h"

#include "KelvadromeKit/daemon/DaemonLog.h"
#include "KelvadromeKit/daemon/DataHome.h"
#include "KelvadromeKit/support/Log.h"
#include "KelvadromeKit/support/LogFile.h"
#include "KelvadromeKit/support/Text.h"

#include <boost/asio/strand.hpp>
#include <boost/system/system_error.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kelvadrome {

namespace {

constexpr double lookTimeout = 2.0; // seconds, as all below
constexpr double waitTimeout = 1.0; // of a health check while waiting
constexpr double childPause = 0.15; // between the checks of a child that comes up
constexpr double loginPause = 0.25; // between the checks of the login item's daemon
constexpr double endPause = 0.1;    // between looks at a child that was told to end
constexpr int stopLooks = 30;
constexpr int hungChecks = 3;
constexpr double restartWindow = 120.0;
constexpr std::size_t restartLimit = 4; // in the window; one more gives up
constexpr double longestBackOff = 30.0;
constexpr double restartTimeout = 15.0;
constexpr double versionLimit = 10.0; // for "node --version"
constexpr std::size_t logLines = 40;
constexpr std::size_t logCharacters = 300;

std::string describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonSupervisor::SpawnError& e) {
        return e.description();
    } catch (const DaemonError& e) {
        return e.message();
    } catch (...) {
        return describeException(error);
    }
}

/// Cancellation is looked at where it matters: a wait that has to be waited out isn't failed by one that came
/// before.
Task<> lookAtCancellationOurselves() {
    co_await asio::this_coro::throw_if_cancelled(false);
}

} // namespace

DaemonSupervisor::DaemonSupervisor(
    DaemonEnvironment env, DaemonClient client, World world, EnvironmentMap processEnvironment)
    : env_(std::move(env)), client_(std::move(client)), world_(std::move(world)),
      processEnvironment_(std::move(processEnvironment)), strand_(asio::make_strand(world_.executor)) {}

Task<DaemonSupervisor::Status> DaemonSupervisor::currentStatus() {
    return runOn(strand_, statusOn(shared_from_this()));
}

Task<> DaemonSupervisor::setLaunchdOwned(bool owned) {
    return runOn(strand_, ownedOn(shared_from_this(), owned));
}

Task<DaemonSupervisor::Status> DaemonSupervisor::start(double timeout) {
    return runOn(strand_, startOn(shared_from_this(), timeout));
}

Task<DaemonSupervisor::Status> DaemonSupervisor::recover() {
    return runOn(strand_, recoverOn(shared_from_this()));
}

Task<> DaemonSupervisor::stop() {
    return runOn(strand_, stopOn(shared_from_this()));
}

Task<DaemonSupervisor::Status> DaemonSupervisor::statusOn(Self self) {
    co_return self->status_;
}

Task<> DaemonSupervisor::ownedOn(Self self, bool owned) {
    self->launchdOwned_ = owned;
    co_return;
}

Task<DaemonSupervisor::Status> DaemonSupervisor::startOn(Self self, double timeout) {
    co_await lookAtCancellationOurselves();
    co_return co_await self->bringUp(timeout);
}

Task<> DaemonSupervisor::stopOn(Self self) {
    co_await lookAtCancellationOurselves();
    self->stops_ += 1;
    co_await self->stopOwnedChild();
}

Task<DaemonSupervisor::Status> DaemonSupervisor::bringUp(double timeout) {
    stopping_ = false;
    auto refusal = DataHome::refusal(env_.home);
    if (refusal) {
        status_.mode = Mode::failed;
        status_.lastError = std::move(refusal);
        co_return status_;
    }
    const bool found = co_await isHealthy(lookTimeout);
    co_await markLoginItemLog();
    if (found) {
        status_.mode = Mode::attached;
        status_.lastError.reset();
        co_return status_;
    }
    if (launchdOwned_)
        co_return co_await awaitLoginItem(timeout);

    const auto spawned = co_await attempt(spawnChild());
    auto error = spawned.error();
    if (!error) {
        const auto answered = co_await attempt(waitHealthy(timeout));
        error = answered.error();
    }
    if (error) {
        co_await stopOwnedChild();
        status_.mode = Mode::failed;
        status_.lastError = describe(error);
    } else {
        status_.mode = Mode::spawned;
        status_.lastError.reset();
        unhealthyChecks_ = 0;
    }
    stopping_ = false;
    co_return status_;
}

Task<DaemonSupervisor::Status> DaemonSupervisor::awaitLoginItem(double timeout) {
    const double deadline = world_.clock->uptime() + timeout;
    while (world_.clock->uptime() < deadline) {
        const bool healthy = co_await isHealthy(waitTimeout);
        if (healthy) {
            status_.mode = Mode::attached;
            status_.lastError.reset();
            co_return status_;
        }
        const bool cancelled = co_await taskCancelled();
        if (cancelled)
            break;
        co_await attempt(world_.clock->sleep(loginPause));
    }
    const std::string words = "The background service has not answered yet. macOS restarts it; Settings, "
                              "General, Background shows its state.";
    auto explained = co_await withLoginItemsReason(words);
    status_.mode = Mode::starting;
    status_.lastError = std::move(explained);
    co_return status_;
}

Task<DaemonSupervisor::Status> DaemonSupervisor::recoverOn(Self self) {
    co_await lookAtCancellationOurselves();
    co_return co_await self->recoverHere();
}

Task<DaemonSupervisor::Status> DaemonSupervisor::recoverHere() {
    const auto stops = stops_;
    const bool healthy = co_await isHealthy(lookTimeout);
    if (healthy) {
        if (status_.mode == Mode::failed || status_.mode == Mode::starting) {
            status_.mode = childRuns() ? Mode::spawned : Mode::attached;
        }
        unhealthyChecks_ = 0;
        co_await markLoginItemLog();
        co_return status_;
    }
    // Nothing is restarted after a stop that came in between, until the next start.
    if (stops_ != stops)
        co_return status_;
    if (launchdOwned_ && !process_) {
        const std::string words = "The background service is restarting.";
        auto explained = co_await withLoginItemsReason(words);
        status_.mode = Mode::starting;
        status_.lastError = std::move(explained);
        co_return status_;
    }
    if (childRuns()) {
        unhealthyChecks_ += 1;
        if (unhealthyChecks_ < hungChecks)
            co_return status_;
        status_.lastError = "kelvadromed stopped answering. Restarting it.";
        co_await stopOwnedChild();
    }
    unhealthyChecks_ = 0;

    const double now = world_.clock->uptime();
    std::erase_if(restartTimes_, [now](double then) { return now - then >= restartWindow; });
    const auto count = restartTimes_.size();
    if (count > restartLimit) {
        status_.mode = Mode::failed;
        status_.lastError = DaemonLog::withReason(
            "kelvadromed stopped 5 times in 2 minutes. Open the log in the inspector.", saidOfLate());
        co_return status_;
    }
    restartTimes_.push_back(now);
    co_await waitOut(std::min(std::exp2(static_cast<double>(count)), longestBackOff));
    if (stops_ != stops)
        co_return status_;
    status_.restarts += 1;
    co_return co_await bringUp(restartTimeout);
}

Task<bool> DaemonSupervisor::isHealthy(double timeout) {
    const auto answer = co_await attempt(client_.health(timeout));
    co_return bool(answer);
}

Task<> DaemonSupervisor::spawnChild() {
    const auto path = processEnvironment_.find("PATH");
    const auto node =
        env_.findNode(path == processEnvironment_.end() ? std::nullopt : std::optional(path->second));
    if (!node) {
        throw SpawnError(
            "Node was not found. Install Node 24 with Homebrew, or use a build that carries Node.");
    }
    status_.nodePath = *node;
    const auto said = co_await askForVersion(*node);
    status_.nodeVersion = said.text.empty() ? std::nullopt : std::optional(said.text);
    if (!DaemonEnvironment::nodeVersionOK(said.text)) {
        auto words = fmt::format(
            "Node {} is too old. kelvadrome needs Node 22.13 or later.", status_.nodeVersion.value_or("?"));
        if (!status_.nodeVersion) // then its age isn't known: it is broken, or hangs
            words += fmt::format(" Node does not start: {}.", said.problem);
        throw SpawnError(words);
    }
    const auto arguments = env_.daemonArguments();
    const auto launcher = env_.launcherPath();
    if (!arguments || !launcher || !Files::exists(*launcher)) {
        throw SpawnError("The bundled daemon is missing. Rebuild the app with scripts/macos/build.sh.");
    }
    Files::makeFolders(env_.home, 0700);
    // While Node was asked for its version a stop may have come, which had nothing to end; the login item may
    // have taken over; another start may have been faster, and its child is waited for.
    if (!stopping_ && !launchdOwned_ && !childRuns())
        launch(*node, *arguments);
}

void DaemonSupervisor::launch(std::string node, std::vector<std::string> arguments) {
    auto environment = env_.daemonEnvironment(processEnvironment_);
    environment["KELVADROME_PARENT_STDIN"] = "1"; // its standard input ends when this process does
    ChildLauncher::Command command{.executable = std::move(node),
        .arguments = std::move(arguments),
        .environment = std::move(environment),
        .currentDirectory = env_.home};

    const auto number = ++launches_;
    linesOfLaunch_ = 0;
    const auto handOver = [strand = strand_, weak = weak_from_this()](auto then) {
        asio::post(strand, [weak, then = std::move(then)] {
            if (const auto self = weak.lock())
                then(*self);
        });
    };
    ChildLauncher::Callbacks callbacks{
        .output =
            [handOver](std::string chunk) {
                handOver([text = Text::repairUTF8(chunk)](DaemonSupervisor& self) { self.appendLog(text); });
            },
        .exited =
            [handOver, number](std::int32_t code) {
                handOver([code, number](DaemonSupervisor& self) { self.childEnded(code, number); });
            }};
    process_ = world_.launcher->launch(std::move(command), std::move(callbacks));
    status_.childPid = process_->pid();
}

Task<> DaemonSupervisor::waitHealthy(double timeout) {
    const double deadline = world_.clock->uptime() + timeout;
    while (world_.clock->uptime() < deadline) {
        const bool healthy = co_await isHealthy(waitTimeout);
        if (healthy)
            co_return;
        if (process_ && !process_->isRunning())
            throw SpawnError("kelvadromed stopped at start. " + DaemonLog::reason(status_.logTail));
        const bool cancelled = co_await taskCancelled();
        if (cancelled)
            throw boost::system::system_error(asio::error::operation_aborted);
        co_await world_.clock->sleep(childPause);
    }
    auto words = fmt::format("kelvadromed did not answer within {} s.", static_cast<std::int64_t>(timeout));
    throw SpawnError(DaemonLog::withReason(std::move(words), saidOfLate()));
}

Task<> DaemonSupervisor::stopOwnedChild() {
    stopping_ = true;
    // The child's end clears `process_` during the pauses below, and a start may put another in its place.
    const auto child = process_;
    if (!child)
        co_return;
    if (!child->isRunning()) {
        process_.reset();
        co_return;
    }
    child->terminate();
    for (int look = 0; look < stopLooks && child->isRunning(); ++look)
        co_await waitOut(endPause);
    if (child->isRunning())
        child->kill();
    child->closeInput();
    if (process_ && process_ != child)
        co_return;
    process_.reset();
    status_.childPid.reset();
}

/// The first line of what Node says to "--version"; without one, the problem.
Task<ChildLauncher::Output> DaemonSupervisor::askForVersion(std::string node) {
    const auto read = [launcher = world_.launcher, node] {
        return launcher->output(node, {"--version"}, versionLimit);
    };
    auto said = co_await world_.pool->run(read);
    const auto text = Text::repairUTF8(said.text);
    const auto lines = Text::split(text, '\n', Text::EmptyPieces::drop);
    if (lines.empty() && said.problem.empty())
        said.problem = node + " printed no version";
    said.text = lines.empty() ? std::string() : std::string(lines.front());
    co_return said;
}

Task<> DaemonSupervisor::markLoginItemLog() {
    if (world_.loginItemLog.empty())
        co_return;
    const auto measure = [path = world_.loginItemLog] { return LogFile::length(path); };
    auto length = co_await attempt(world_.pool->run(measure));
    if (length)
        loginItemLogRead_ = *length;
}

/// `words` with what the login item's daemon has said since it last answered: what keeps it from starting.
Task<std::string> DaemonSupervisor::withLoginItemsReason(std::string words) {
    if (world_.loginItemLog.empty())
        co_return words;
    const auto read = [path = world_.loginItemLog, from = loginItemLogRead_] {
        return Text::repairUTF8(LogFile::textAfter(path, from));
    };
    auto text = co_await attempt(world_.pool->run(read));
    if (!text)
        co_return words;
    std::vector<std::string> lines;
    for (const auto line : Text::split(*text, '\n', Text::EmptyPieces::drop))
        lines.emplace_back(line);
    co_return DaemonLog::withReason(std::move(words), lines);
}

/// A pause that goes on when the task is cancelled.
Task<> DaemonSupervisor::waitOut(double seconds) {
    const double end = world_.clock->uptime() + seconds;
    while (true) {
        const auto slept = co_await attempt(world_.clock->sleep(end - world_.clock->uptime()));
        if (!isCancellation(slept.error()))
            co_return;
    }
}

void DaemonSupervisor::appendLog(std::string_view text) {
    auto& tail = status_.logTail;
    for (const auto line : Text::split(text, '\n', Text::EmptyPieces::drop)) {
        tail.emplace_back(Text::prefix(line, logCharacters));
        linesOfLaunch_ += 1;
    }
    if (tail.size() > logLines)
        tail.erase(tail.begin(), tail.end() - logLines);
}

/// What an earlier child said explains nothing about the last one.
std::span<const std::string> DaemonSupervisor::saidOfLate() const {
    const std::span lines(status_.logTail);
    return lines.last(std::min(linesOfLaunch_, lines.size()));
}

void DaemonSupervisor::childEnded(std::int32_t code, std::uint64_t launch) {
    // The end of a child that another has replaced is no news about that other one.
    if (process_ && launch != launches_)
        return;
    status_.childPid.reset();
    if (!stopping_) {
        status_.lastError = fmt::format("kelvadromed exited with code {}.", code);
        status_.mode = Mode::starting;
    }
    process_.reset();
}

std::string_view rawValue(DaemonSupervisor::Mode mode) {
    switch (mode) {
    case DaemonSupervisor::Mode::starting:
        return "starting";
    case DaemonSupervisor::Mode::attached:
        return "attached";
    case DaemonSupervisor::Mode::spawned:
        return "spawned";
    case DaemonSupervisor::Mode::failed:
        return "failed";
    }
    return "";
}

} // namespace kelvadrome
