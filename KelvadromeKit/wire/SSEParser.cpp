#include "KelvadromeKit/wire/SSEParser.h"

namespace kelvadrome {

namespace {

constexpr std::string_view unnamed = "message";

/// The value of a line for the field `name`, without the one blank that may stand before it.
std::optional<std::string_view> value(std::string_view line, std::string_view name) {
    if (!line.starts_with(name))
        return std::nullopt;
    line.remove_prefix(name.size());
    if (line.empty())
        return line;
    if (line.front() != ':')
        return std::nullopt;
    line.remove_prefix(line.starts_with(": ") ? 2 : 1);
    return line;
}

} // namespace

void SSEParser::Field::lend(std::string_view value) {
    lentValue_ = value;
    lent_ = present_ = true;
}

void SSEParser::Field::keep() {
    if (!present_ || !lent_)
        return;
    keptValue_ = lentValue_;
    lent_ = false;
}

void SSEParser::Field::addLine(std::string_view line) {
    keep();
    keptValue_.append("\n").append(line);
}

std::vector<SSEParser::Event> SSEParser::feed(std::string_view text) {
    std::vector<Event> finished;
    feed(text, [&finished](const EventView& event) { finished.push_back(event.copy()); });
    return finished;
}

void SSEParser::feed(std::string_view text, const OnEvent& onEvent) {
    // The start of a line holds no line feed, so only new text is searched.
    for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
        const auto line = text.substr(0, end);
        if (lineStart_.empty()) {
            takeLine(line, onEvent);
        } else {
            takeCutLine(line, onEvent);
        }
    }
    lineStart_.append(text);
    keepFields();
}

void SSEParser::takeCutLine(std::string_view rest, const OnEvent& onEvent) {
    takeLine(lineStart_.append(rest), onEvent);
    keepFields(); // they may lie in the start, which is used again
    lineStart_.clear();
}

void SSEParser::takeLine(std::string_view line, const OnEvent& onEvent) {
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    if (line.empty()) {
        endEvent(onEvent);
    } else {
        takeField(line);
    }
}

void SSEParser::endEvent(const OnEvent& onEvent) {
    const auto name = event_.present() ? event_.view() : unnamed;
    if (data_.present() || name != unnamed) {
        onEvent({name, data_.present() ? data_.view() : std::string_view(),
            id_.present() ? std::optional(id_.view()) : std::nullopt});
    }
    event_.clear();
    data_.clear();
    id_.clear();
}

/// Comments, such as a keep-alive, are among the lines that aren't known.
void SSEParser::takeField(std::string_view line) {
    if (const auto data = value(line, "data")) {
        if (data_.present()) {
            data_.addLine(*data);
        } else {
            data_.lend(*data);
        }
    } else if (const auto event = value(line, "event")) {
        event_.lend(*event);
    } else if (const auto id = value(line, "id")) {
        id_.lend(*id);
    }
}

void SSEParser::keepFields() {
    event_.keep();
    data_.keep();
    id_.keep();
}

} // namespace kelvadrome
