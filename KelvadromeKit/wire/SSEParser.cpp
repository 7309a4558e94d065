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

std::vector<SSEParser::Event> SSEParser::feed(std::string_view text) {
    std::vector<Event> finished;
    feed(text, [&finished](const Event& event) { finished.push_back(event); });
    return finished;
}

void SSEParser::feed(std::string_view text, const std::function<void(const Event&)>& onEvent) {
    // What is pending holds no line feed, so only new text is searched and only a line cut in two is copied.
    for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
        auto line = text.substr(0, end);
        if (!pending_.empty())
            line = pending_.append(line);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.empty()) {
            endEvent(onEvent);
        } else {
            takeField(line);
        }
        pending_.clear();
    }
    pending_.append(text);
}

void SSEParser::endEvent(const std::function<void(const Event&)>& onEvent) {
    if (hasData_ || current_.event != unnamed)
        onEvent(current_);
    current_.event = unnamed;
    current_.data.clear();
    current_.id.reset();
    hasData_ = false;
}

/// Comments, such as a keep-alive, are among the lines that aren't known.
void SSEParser::takeField(std::string_view line) {
    if (const auto data = value(line, "data")) {
        if (hasData_)
            current_.data += '\n';
        current_.data += *data;
        hasData_ = true;
    } else if (const auto event = value(line, "event")) {
        current_.event = *event;
    } else if (const auto id = value(line, "id")) {
        current_.id = *id;
    }
}

} // namespace kelvadrome
