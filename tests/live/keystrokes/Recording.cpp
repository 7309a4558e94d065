#include "tests/live/keystrokes/Recording.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

namespace kelvadrome::test {

namespace {

std::string fromHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(Text::parseInteger(hex.substr(i, 2), 16).value_or(0));
    return bytes;
}

} // namespace

std::string readable(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes)
        text += byte == '\r' ? "<Return>" : byte == '\033' ? "<Esc>" : std::string(1, byte);
    return text;
}

Recording Recording::read(const std::string& log) {
    Recording recording;
    const auto text = Files::read(log, 10'000'000).value_or("");
    for (const auto line :
        Text::split(std::string_view(text).substr(0, text.rfind('\n') + 1), '\n', Text::EmptyPieces::drop)) {
        const auto fields = Text::split(line, ' ');
        if (fields.size() < 4)
            continue;
        Event event{std::string(fields[0]), static_cast<pid_t>(Text::parseInteger(fields[1]).value_or(0)),
            std::string(fields[2]), "", Text::parseInteger(fields.back()).value_or(0)};
        if (fields.size() > 4)
            event.word = event.name == "read" ? fromHex(fields[3]) : std::string(fields[3]);
        recording.events.push_back(std::move(event));
    }
    return recording;
}

std::string Recording::bytes(std::string_view who) const {
    std::string all;
    for (const auto& event : events) {
        if (event.who == who && event.name == "read")
            all += event.word;
    }
    return all;
}

std::string Recording::strays(std::string_view but) const {
    std::string words;
    for (const auto& event : events) {
        if (event.who != but && event.name == "read")
            words += fmt::format("{}{} read {}", words.empty() ? "" : ", ", event.who, readable(event.word));
    }
    return words;
}

std::optional<Recording::Event> Recording::find(
    std::string_view who, std::string_view name, std::size_t skip) const {
    for (const auto& event : events) {
        if (event.who == who && event.name == name && skip-- == 0)
            return event;
    }
    return std::nullopt;
}

std::size_t Recording::count(std::string_view who, std::string_view name) const {
    std::size_t count = 0;
    while (find(who, name, count))
        ++count;
    return count;
}

} // namespace kelvadrome::test
