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

    /// The same, lying in the piece or in the parser: valid only during the call that it is handed to.
    struct EventView {
        std::string_view event;
        std::string_view data;
        std::optional<std::string_view> id;

        Event copy() const { return {std::string(event), std::string(data), std::optional<std::string>(id)}; }
    };
    using OnEvent = std::function<void(const EventView&)>;

    /// The events that this piece (whole UTF-8 characters) finished, in order.
    std::vector<Event> feed(std::string_view text);

    /// The same, each handed on as it ends. Only what an event has from an earlier piece, or on several data
    /// lines, is copied.
    void feed(std::string_view text, const OnEvent& onEvent);

private:
    /// A value that lies in the piece being read, until that piece ends and it has to be kept.
    class Field {
    public:
        void clear() { present_ = false; }
        void lend(std::string_view value);
        void keep();
        void addLine(std::string_view line);
        bool present() const { return present_; }
        std::string_view view() const { return lent_ ? lentValue_ : std::string_view(keptValue_); }

    private:
        std::string_view lentValue_; // where `lent_`
        std::string keptValue_;      // otherwise
        bool lent_ = false;
        bool present_ = false;
    };

    void takeCutLine(std::string_view rest, const OnEvent& onEvent);
    void takeLine(std::string_view line, const OnEvent& onEvent);
    void takeField(std::string_view line);
    void endEvent(const OnEvent& onEvent);
    void keepFields();

    std::string lineStart_; // of a line whose end is in a later piece
    Field event_;
    Field data_;
    Field id_;
};

} // namespace kelvadrome
