#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

/// Turns the text of an event stream into events. Pieces may end anywhere, also inside a CR LF pair. Never
/// fails: a field that isn't known is skipped. One parser per stream; not thread-safe.
class SSEParser {
public:
    struct Event {
        std::string event = "message";
        std::string data;              // the data lines joined with line feeds
        std::optional<std::string> id; // of this event; it doesn't carry over

        bool operator==(const Event&) const = default;
    };

    /// The events that this piece (whole UTF-8 characters) finished, in order.
    std::vector<Event> feed(std::string_view text);

    /// The same, each handed to `onEvent` as it ends. It is the parser's own and changes with the next: a
    /// long stream allocates nothing for its events.
    void feed(std::string_view text, const std::function<void(const Event&)>& onEvent);

private:
    void takeField(std::string_view line);
    void endEvent(const std::function<void(const Event&)>& onEvent);

    std::string pending_; // a line's start, without a line feed
    Event current_;
    bool hasData_ = false; // a data line was seen for it
};

} // namespace kelvadrome
