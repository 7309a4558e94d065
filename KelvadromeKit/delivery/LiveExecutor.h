#pragma once

#include "KelvadromeKit/delivery/CommandRunning.h"
#include "KelvadromeKit/delivery/DeliverJob.h"
#include "KelvadromeKit/delivery/HostAccess.h"
#include "KelvadromeKit/delivery/HostPlan.h"
#include "KelvadromeKit/delivery/HostSession.h"
#include "KelvadromeKit/delivery/ProcFacts.h"
#include "KelvadromeKit/delivery/TrustScreen.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Files.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelvadrome {

/// Carries a job from its first check to its outcome. The cheap checks come before the daemon hears anything,
/// its go-ahead comes as late as possible, and after that a fresh look at the process table stands before
/// every keystroke. "refused" means that no key reached the terminal, "failed" that some may have: a first
/// key whose command had to be stopped may have gone in all the same.
///
/// A value without state between jobs; works on any executor, but must outlive the tasks that it returned.
/// These never throw, unless they are cancelled.
struct LiveExecutor {
    /// Asks the daemon whether the job may begin: absent means go, a text is the reason to stop.
    using Start = std::function<Task<std::optional<std::string>>()>;

    struct Hosts {
        std::vector<HostSession> sessions;
        std::map<std::string, HostAccess> access; // by host; an app that doesn't run isn't in it

        bool operator==(const Hosts&) const = default;
    };

    std::shared_ptr<CommandRunning> runner; // for tmux a TmuxGate, which looks with each key
    HostPlan::Bins bins;
    std::shared_ptr<Clock> clock; // of the pauses between keys, and of expiry while a screen is answered
    std::string home;             // the user's, which a screen may write as "~"

    /// Where tmux, herdr, codex and claude are. Each is looked for in the user's own folder, then in the
    /// system's.
    static HostPlan::Bins findBins(const std::string& home,
        const std::function<bool(const std::string&)>& isExecutable = Files::isExecutable);

    /// One job from its first check to its outcome. `now` is the time against which its expiry is judged at
    /// the beginning.
    Task<JobOutcome> perform(
        DeliverJob job, std::set<std::string> presenceTags, WallTime now, Start start) const;

    /// A fresh look at one process; absent when it is gone.
    Task<std::optional<ProcFacts>> facts(std::optional<std::int64_t> pid) const;

    // What each type of job comes to. These rely on the checks that `perform` has made.

    /// Brings the terminal to the front.
    Task<JobOutcome> focus(DeliverJob job) const;
    /// Starts an agent in a new terminal.
    Task<JobOutcome> open(DeliverJob job) const;
    /// Types an answer's steps, looking at the process again before each command.
    Task<JobOutcome> type(DeliverJob job, Start start) const;
    /// Answers the folder question: each key is chosen from a fresh read of the screen, at most four in all.
    Task<JobOutcome> trustAnswer(DeliverJob job, Start start, std::function<WallTime()> now) const;
    /// The folder question, if it is on the screen right now. Presses nothing.
    Task<std::optional<TrustScreen::Match>> trustScreen(DeliverJob job) const;

    /// The sessions of the terminal apps that run, and how far the apps let themselves be scripted. An app
    /// whose consent question is open is left alone: a script would make it pop up.
    Task<Hosts> hostsAndAccess(bool itermRunning, bool terminalRunning, HostAccessProbe probe) const;
    Task<std::vector<HostSession>> hosts(bool itermRunning, bool terminalRunning) const;

private:
    static constexpr double keyLimit = 5.0; // seconds that a terminal has to take a key

    /// A command that a terminal was given.
    struct Given {
        std::optional<JobOutcome> end = {}; // how the job ends, if it does
        double secondsSince = 0;            // as RunOutput's
    };
    /// The screen of a screen question.
    struct Screen {
        std::optional<TrustScreen::Match> question = {};
        std::optional<std::string> refusal = {}; // why it could not be read, where there are words for it
    };
    /// What pressing a key of a screen answer came to.
    struct Pressed {
        std::optional<JobOutcome> end = {}; // how the job ends, if it does
        std::string key = {};               // that was pressed
        double secondsSince = 0;            // as RunOutput's
    };

    Task<JobOutcome> carryOut(
        DeliverJob job, std::set<std::string> presenceTags, WallTime now, Start start) const;

    Task<Given> give(RunCommand command, double timeout, std::string words, bool first) const;
    Task<> pauseAfterKey(double pause, double secondsSince) const;
    Task<std::optional<std::string>> processRefusal(DeliverJob job) const;
    Task<std::optional<std::string>> firstKeyRefusal(DeliverJob job) const;
    Task<JobOutcome> typePlan(DeliverJob job, std::vector<RunCommand> plan) const;
    Task<Screen> readScreen(DeliverJob job) const;
    Task<Pressed> pressNext(DeliverJob job, bool first, std::function<WallTime()> now) const;
    Task<JobOutcome> afterReturn(DeliverJob job) const;
};

} // namespace kelvadrome
