#include "KelvadromeKit/daemon/DaemonLog.h"

#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>

#include <algorithm>
#include <optional>
#include <ranges>
#include <string_view>

namespace kelvadrome::DaemonLog {

namespace {

constexpr std::size_t longestReason = 300; // characters
constexpr std::string_view daemonsName = "kelvadromed: ";

/// A stack's frames, the mark under a piece of source, the fields of an error that is printed as an object,
/// and the version of Node that ends it all.
bool belongsToATrace(const std::string& line) {
    static const RE2 trace(R"(\s.*|[\]\[{}]*|Node\.js v[\d.]+)");
    return RE2::FullMatch(line, trace);
}

bool namesAnError(const std::string& line) {
    static const RE2 error(R"(^(?:kelvadromed: |Uncaught )*\w*(?:Error|Exception)\b)");
    return RE2::PartialMatch(line, error);
}

std::optional<std::string> tellingLine(std::span<const std::string> lines) {
    const auto backward = lines | std::views::reverse;
    const auto last = std::ranges::find_if_not(backward, belongsToATrace);
    if (last == backward.end())
        return std::nullopt;
    if (last != backward.begin()) {
        const auto error = std::ranges::find_if(backward, namesAnError);
        if (error != backward.end())
            return *error;
    }
    return *last;
}

/// Like the keys and cookies of this system: long, and of a random mixture or of hexadecimal digits.
bool looksRandom(const std::string& word) {
    static const RE2 hexadecimal("[0-9a-fA-F]+");
    const auto has = [&](char from, char to) {
        return std::ranges::any_of(word, [&](char letter) { return letter >= from && letter <= to; });
    };
    return RE2::FullMatch(word, hexadecimal) || (has('0', '9') && has('a', 'z') && has('A', 'Z'));
}

std::string withoutSecrets(std::string line) {
    static const RE2 named(
        R"((?i)(token=|secret=|password=|api[-_]?key=|cookie: |authorization: |bearer )\S+)");
    static const RE2 pieces(R"(([A-Za-z0-9_+\-]{32,})|[^A-Za-z0-9_+\-]+|[A-Za-z0-9_+\-]+)");
    RE2::GlobalReplace(&line, named, "\\1…");
    std::string shown;
    re2::StringPiece rest(line);
    for (const auto* from = rest.data(); !rest.empty(); from = rest.data()) {
        std::string longWord;
        if (!RE2::Consume(&rest, pieces, &longWord))
            break;
        shown.append(looksRandom(longWord) ? "…" : std::string_view(from, rest.data()));
    }
    return shown;
}

std::string onOneLine(std::string line) {
    static const RE2 colours(R"(\x1b\[[0-9;?]*[A-Za-z])");
    static const RE2 controls(
        R"( *[\p{Cc}\x{2028}-\x{202E}\x{2066}-\x{2069}][\p{Cc}\x{2028}-\x{202E}\x{2066}-\x{2069} ]*)");
    RE2::GlobalReplace(&line, colours, "");
    RE2::GlobalReplace(&line, controls, " ");
    return std::string(Text::trimWhitespace(line));
}

} // namespace

std::string reason(std::span<const std::string> lines) {
    auto line = tellingLine(lines);
    if (!line)
        return {};
    return std::string(Text::prefix(withoutSecrets(onOneLine(std::move(*line))), longestReason));
}

std::string withReason(std::string words, std::span<const std::string> lines) {
    const auto said = reason(lines);
    const auto rest = std::string_view(said).substr(said.starts_with(daemonsName) ? daemonsName.size() : 0);
    return rest.empty() ? words : words.append(" ").append(rest);
}

} // namespace kelvadrome::DaemonLog
