#pragma once

#include <boost/json/object.hpp>

#include <optional>
#include <string>

namespace kelvadrome {

/// One terminal session as iTerm2 or Terminal lists it.
struct HostSession {
    static constexpr std::size_t maxTitle = 120; // characters

    std::string host;                  // "iterm2" or "terminal"
    std::string tty;                   // without "/dev/"
    std::string ref;                   // iTerm2's session id; for Terminal "<window id>:<tab index>"
    std::optional<std::string> title;  // sanitised, at most maxTitle characters
    std::optional<bool> atShellPrompt; // what iTerm2 reports; absent when unknown

    /// What the daemon gets; what is absent is null there.
    boost::json::object wire() const;
    bool operator==(const HostSession&) const = default;
};

} // namespace kelvadrome
