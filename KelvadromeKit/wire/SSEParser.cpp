#include "KelvadromeKit/wire/SSEParser.h"

#include <utility>

namespace kelvadrome {

std::vector<SSEParser::Event> SSEParser::feed(std::string_view text) {
    std::vector<Event> finished;
    // What is pending holds no line feed, so only new text is searched and only a line cut in two is copied.
    for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
        auto line = text.substr(0, end);
        if (!pending_.empty())
            line = pending_.append(line);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        takeLine(line, finished);
        pending_.clear();
    }
    pending_.append(text);
    return finished;
}

void SSEParser::takeLine(std::string_view line, std::vector<Event>& finished) {
    if (line.empty()) {
        if (hasData_ || current_.event != "message")
            finished.push_back(std::move(current_));
        current_ = Event();
        hasData_ = false;
        return;
    }
    if (line.front() == ':')
        return; // a comment, such as a keep-alive
    const auto colon = line.find(':');
    const auto name = line.substr(0, colon);
    auto value = colon == line.npos ? std::string_view() : line.substr(colon + 1);
    if (value.starts_with(' '))
        value.remove_prefix(1);
    if (name == "data") {
        if (hasData_)
            current_.data += '\n';
        current_.data += value;
        hasData_ = true;
    } else if (name == "event") {
        current_.event = value;
    } else if (name == "id") {
        current_.id = value;
    }
}

} // namespace kelvadrome
