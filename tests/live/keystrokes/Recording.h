#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kelvadrome::test {

/// What the recorders of one round wrote down, in its order.
struct Recording {
    struct Event {
        std::string who;
        pid_t pid = 0;
        std::string name; // "ready", "read", "chose" or "unable"
        std::string word; // the bytes of "read", the option of "chose"
        std::int64_t nanoseconds = 0;
    };

    std::vector<Event> events;

    static Recording read(const std::string& log);

    /// All that this one read.
    std::string bytes(std::string_view who) const;
    /// Who read something, but for this one; with what, in words.
    std::string strays(std::string_view but) const;
    /// The first of these events but for `skip`; absent when there is none.
    std::optional<Event> find(std::string_view who, std::string_view name, std::size_t skip = 0) const;
    std::size_t count(std::string_view who, std::string_view name) const;
};

/// Bytes with their controls in words.
std::string readable(std::string_view bytes);

} // namespace kelvadrome::test
