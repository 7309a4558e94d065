#pragma once

#include "KelvadromeKit/support/JSON.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelvadrome {

/// The reply of `/v1/health`; any JSON object is one.
struct Health {
    std::string name = "kelvadromed";
    std::string version = "?";
    std::int64_t pid = 0;
    std::string home;
    std::optional<std::string> watermark; // sent as a string or as a number
    std::optional<double> uptimeS;
    std::string kd = "kd"; // what starts its command at a shell of this machine

    static Health decode(const JSONValue& value);
    bool operator==(const Health&) const = default;
};

/// One topic on the board.
struct BoardRow {
    std::string id;
    std::string title; // its own id when the daemon gives none
    std::optional<std::string> scope;
    std::int64_t openCards = 0;

    static BoardRow decode(const JSONValue& value);
    bool operator==(const BoardRow&) const = default;
};

/// One line of the activity log.
struct Receipt {
    std::string eventId;
    std::string action;
    std::string line;
    std::optional<std::string> topic;
    std::string ts; // ISO 8601, kept as text
    std::optional<std::string> cardId = {};

    static Receipt decode(const JSONValue& value);
    bool operator==(const Receipt&) const = default;
};

struct InboxCounts {
    std::int64_t needsYou = 0;
    std::int64_t answeredByRulesToday = 0;
    std::int64_t agentsWorking = 0;
    std::int64_t verifiedToday = 0;

    static InboxCounts decode(const JSONValue& value);
    bool operator==(const InboxCounts&) const = default;
};

/// The reply of `/v1/inbox`; only its counts are read here.
struct InboxFeed {
    std::optional<InboxCounts> counts;

    static InboxFeed decode(const JSONValue& value);
    bool operator==(const InboxFeed&) const = default;
};

/// The reply of `/v1/page/token`: a one-time login URL.
struct LoginLink {
    std::string url;
    std::string expiresAt;

    static LoginLink decode(const JSONValue& value);
    bool operator==(const LoginLink&) const = default;
};

/// The reply of `/v1/onboarding/status`.
struct OnboardingStatus {
    struct Install {
        std::string state;
        std::optional<std::string> kind;

        static Install decode(const JSONValue& value);
        bool operator==(const Install&) const = default;
    };

    struct Agent {
        std::string id;
        std::optional<std::string> name;
        std::optional<Install> install;

        static Agent decode(const JSONValue& value);
        bool operator==(const Agent&) const = default;
    };

    std::optional<bool> completed;
    std::vector<Agent> agents;

    static inline const std::set<std::string> busyStates{"queued", "running", "verifying"};
    /// The agents being installed at this moment, by name, or by id without one.
    std::vector<std::string> installingNames() const;

    static OnboardingStatus decode(const JSONValue& value);
    bool operator==(const OnboardingStatus&) const = default;
};

} // namespace kelvadrome
