#pragma once

#include "KelvadromeKit/delivery/LiveExecutor.h"

#include "tests/delivery/Jobs.h"
#include "tests/support/Paced.h"
#include "tests/support/ScriptedRunner.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kelvadrome {

inline void PrintTo(const JobOutcome& outcome, std::ostream* out) {
    *out << outcome.outcome << " (" << outcome.reason.value_or("no reason") << ") by " << outcome.path;
}

namespace test {

using Lines = std::vector<std::string>;
using Pauses = std::vector<long>; // milliseconds
inline const std::string psLine = "ps -o pid=,pgid=,tpgid=,tty=,comm= -p 501";
inline const std::string alive = "  501   501   501 ttys004  /usr/local/bin/claude\n";
inline const std::string uuid = "0123abcd-0123-4567-89AB-0123456789ab";

inline RunOutput says(std::string text, std::int32_t status = 0) {
    return ScriptedRunner::says(std::move(text), status);
}

inline std::string question(
    bool trustSelected, const std::string& folder = "/Users/me/p", bool trustFirst = false) {
    const std::string trust = "Yes, I trust this folder", exit = "No, exit";
    const std::string marks[] = {"❯ ", "  "};
    const bool below = trustSelected != trustFirst; // the second option is selected
    return "Accessing workspace:\n\n" + folder + "\n\nQuick safety check: is this yours?\n\n" + marks[below] +
           "1. " + (trustFirst ? trust : exit) + "\n" + marks[!below] + "2. " + (trustFirst ? exit : trust) +
           "\n\nEnter to confirm · Esc to cancel\n";
}

/// A job that is carried out: a healthy agent on ttys004 unless a test says otherwise, and a daemon that says
/// go.
class LiveExecutorTest : public testing::Test {
protected:
    LiveExecutorTest() { healthy(); }

    void healthy() {
        runner = std::make_shared<ScriptedRunner>();
        runner->on(psLine, says(alive));
        runner->on("display-message", says("/dev/ttys004 claude\n"));
        runner->on("tmux send-keys", says(""));
        runner->on("tmux select-pane", says(""));
        runner->on("itermWrite", says("ok\n"));
        pauses.clear();
        asked = 0;
        clock = std::make_shared<ManualClock>(beforeExpiry);
    }

    LiveExecutor live() const {
        return {runner,
            {{"tmux", "/opt/tmux"}, {"herdr", "/opt/herdr"}, {"codex", "/opt/codex"},
                {"claude", "/opt/claude"}},
            clock, "/Users/me"};
    }

    JobOutcome perform(DeliverJob job) {
        const auto executor = live();
        return paced(executor.perform(std::move(job), presenceTags, clock->now(), start()));
    }

    JobOutcome paced(Task<JobOutcome> delivery) {
        return runPaced(loop, *clock, std::move(delivery),
            [this](double pause) { pauses.push_back(std::lround(pause * 1000)); });
    }

    LiveExecutor::Start start() {
        return [this] { return answerStart(this); };
    }
    static Task<std::optional<std::string>> answerStart(LiveExecutorTest* test) {
        ++test->asked;
        test->callsAtStart = test->runner->calls.size();
        if (test->whileAsking)
            test->whileAsking();
        co_return test->stop;
    }

    TestLoop loop;
    std::shared_ptr<ManualClock> clock;
    std::shared_ptr<ScriptedRunner> runner;
    Pauses pauses;
    std::optional<std::string> stop; // the daemon's no
    std::function<void()> whileAsking;
    int asked = 0;
    std::size_t callsAtStart = 0;
};

} // namespace test
} // namespace kelvadrome
