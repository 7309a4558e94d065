#pragma once

#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/JSON.h"

#include <boost/json/object.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// One thing to press or type.
struct DeliverStep {
    enum class Kind {
        key,    // one menu key, typed literally, without Return
        text,   // a line of text, then Return
        nav,    // a key of a screen question: "up", "down" or "enter"
        escape, // the Escape key; no value
    };

    Kind kind = Kind::escape;
    std::string value;

    static DeliverStep key(std::string key) { return {Kind::key, std::move(key)}; }
    static DeliverStep text(std::string text) { return {Kind::text, std::move(text)}; }
    static DeliverStep nav(std::string key) { return {Kind::nav, std::move(key)}; }
    static DeliverStep escape() { return {}; }

    /// Throws DecodingError, also for a kind or a navigation key that isn't known.
    static DeliverStep decode(const JSONValue& value);
    bool operator==(const DeliverStep&) const = default;
};

/// One claimed job. Decoding checks its shape only; what its values mean is for DeliverCheck to judge.
struct DeliverJob {
    /// What to start, for type "open".
    struct Open {
        std::string cwd;
        std::vector<std::string> argv;
        std::optional<std::string> prompt;

        static Open decode(const JSONValue& value);
        bool operator==(const Open&) const = default;
    };

    /// The question on a screen, for "peek" and for the answers to it.
    struct Screen {
        std::string profile;               // "claude_trust" is the only one known
        std::optional<std::string> want;   // "trust" or "exit"
        std::optional<std::string> folder; // the folder that the question must name

        static Screen decode(const JSONValue& value);
        bool operator==(const Screen&) const = default;
    };

    std::string id;
    std::string type; // "answer", "open", "peek" or "focus"
    std::optional<std::string> cardId;
    std::string agent; // the executable name that the process must have
    std::optional<std::string> sessionId;
    std::optional<std::int64_t> pid; // the agent, when the answer was asked for
    std::optional<std::int64_t> pgid;
    std::optional<std::string> tty;     // without "/dev/"
    std::string host;                   // "iterm2", "terminal", "tmux", "herdr" or "unknown"
    std::optional<std::string> hostRef; // iTerm2 session id, tmux pane or herdr pane
    std::optional<std::vector<DeliverStep>> steps;
    std::optional<std::string> codexThread; // with host "unknown": goes through Codex's own queue
    std::optional<Open> open;
    std::optional<Screen> screen;
    std::optional<std::vector<std::string>>
        menu;              // the options of which a key chooses one, as the card shows them
    std::string presence;  // tag of the page session that pressed the answer
    std::string expiresAt; // ISO 8601, kept as text

    /// When the job dies; absent when `expiresAt` is no time.
    std::optional<WallTime> expiry() const;
    /// A text for Codex's own queue instead of keys for a terminal.
    bool isCodexQueue() const { return codexThread && host == "unknown"; }

    static DeliverJob decode(const JSONValue& value);
    bool operator==(const DeliverJob&) const = default;
};

/// The reply to a claim. One job that doesn't decode fails all of it.
struct DeliverClaimOut {
    std::vector<DeliverJob> jobs;

    static DeliverClaimOut decode(const JSONValue& value);
    bool operator==(const DeliverClaimOut&) const = default;
};

/// The verdict on a job.
struct JobOutcome {
    std::string outcome; // "done"; "refused": nothing was pressed; "failed": some of it may have been
    std::optional<std::string> reason;
    std::string path = "host"; // "codex_queue" for a delivery through Codex's own queue

    static JobOutcome done(std::string path = "host") { return {"done", std::nullopt, std::move(path)}; }
    static JobOutcome refused(std::string reason) { return {"refused", std::move(reason)}; }
    static JobOutcome failed(std::string reason) { return {"failed", std::move(reason)}; }

    /// What the daemon gets: a reason is cut to its first 200 characters and left out when absent.
    boost::json::object wire() const;
    bool operator==(const JobOutcome&) const = default;
};

/// The reply to a start report: only `proceed` true lets the job go on.
struct DeliverReportOut {
    std::optional<bool> proceed;
    std::optional<std::string> reason;

    static DeliverReportOut decode(const JSONValue& value);
    bool operator==(const DeliverReportOut&) const = default;
};

/// One agent session as the daemon sees it.
struct CrewLabelRow {
    std::string key;
    std::string host;
    std::optional<std::string> tty;
    std::optional<std::string> callsign;
    std::string status;

    static CrewLabelRow decode(const JSONValue& value);
    bool operator==(const CrewLabelRow&) const = default;
};

struct CrewLabelList {
    std::vector<CrewLabelRow> sessions;
    std::optional<bool> crewLabels; // absent means on

    static CrewLabelList decode(const JSONValue& value);
    bool operator==(const CrewLabelList&) const = default;
};

} // namespace kelvadrome
