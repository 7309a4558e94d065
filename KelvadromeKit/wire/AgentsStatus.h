#pragma once

#include "KelvadromeKit/support/JSON.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// What the daemon knows of the agents. An array that doesn't decode is empty; the others are unaffected.
struct AgentsStatus {
    struct Session {
        std::string agent;
        std::string sessionId;
        std::optional<std::string> label;
        std::string status;
        std::optional<std::string> topic;
        std::optional<std::string> kind;
        std::optional<std::string> detail; // the key is "doing"
        std::optional<std::string> topicTitle;
        std::optional<std::string> callsign = {}; // by which agents of one kind are told apart
        std::optional<std::string> host = {};     // of its terminal, such as "tmux"
        std::optional<std::string> tty = {};
        std::optional<std::string> folder = {}; // that it works in
        std::optional<std::string> pane = {};   // of its terminal, as the host names it

        static Session decode(const JSONValue& value);
        bool operator==(const Session&) const = default;
    };

    struct Holder {
        std::optional<std::string> handoff;
        std::optional<std::string> label;

        static Holder decode(const JSONValue& value);
        bool operator==(const Holder&) const = default;
    };

    struct Lock {
        std::string resource;
        std::optional<Holder> holder;
        std::int64_t queue = 0; // the daemon sends a length or the queue itself

        static Lock decode(const JSONValue& value);
        bool operator==(const Lock&) const = default;
    };

    struct Autopilot {
        std::string scope = "*";
        std::string actionClass;
        std::string level = "L0";
        std::optional<std::string> label;
        std::optional<std::string> mode;
        bool floor = false;

        static Autopilot decode(const JSONValue& value);
        bool operator==(const Autopilot&) const = default;
    };

    std::vector<Session> sessions;
    std::vector<Lock> locks;
    std::vector<Autopilot> autopilot;

    static AgentsStatus decode(const JSONValue& value);
    bool operator==(const AgentsStatus&) const = default;
};

} // namespace kelvadrome
