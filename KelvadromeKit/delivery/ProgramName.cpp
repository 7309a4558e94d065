#include "KelvadromeKit/delivery/ProgramName.h"

#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>

#include <algorithm>
#include <array>

namespace kelvadrome {

namespace {

template <std::size_t count>
bool isOneOf(std::string_view word, const std::array<std::string_view, count>& words) {
    return std::ranges::find(words, word) != words.end();
}

bool isInterpreter(std::string_view name) {
    static const RE2 pattern("node|nodejs|bun|deno|python[0-9.]*");
    return RE2::FullMatch(name, pattern);
}

/// What Node calls its first thread, and thereby the process.
bool isNoName(std::string_view name) {
    return name == "MainThread" || name == "node-MainThread";
}

bool takesValue(std::string_view option) {
    static constexpr std::array<std::string_view, 10> options{"-r", "--require", "--import", "--loader",
        "--experimental-loader", "-C", "--conditions", "--env-file", "-X", "-W"};
    return isOneOf(option, options);
}

bool namesNoScript(std::string_view option) {
    static constexpr std::array<std::string_view, 6> options{"-e", "--eval", "-p", "--print", "-c", "-"};
    return isOneOf(option, options);
}

/// The package that a file belongs to, without a tail that only says what kind of package it is.
std::string packageOf(std::string_view path) {
    static const RE2 pattern(".*/(?:node_modules|site-packages)/(?:@[^/]+/)?([^/]+)/.*");
    static const RE2 tail("-(cli|code|ai)$");
    std::string name;
    if (RE2::FullMatch(path, pattern, &name))
        RE2::Replace(&name, tail, "");
    return name;
}

std::string scriptName(std::string_view path) {
    static const RE2 extension("\\.([cm]?[jt]sx?|pyz?)$");
    static constexpr std::array<std::string_view, 4> sayNothing{"index", "cli", "main", "__main__"};
    std::string name(Text::lastPathComponent(path));
    RE2::Replace(&name, extension, "");
    const auto package = isOneOf(name, sayNothing) ? packageOf(path) : "";
    return package.empty() ? name : package;
}

} // namespace

std::string programName(std::string_view command, const std::vector<std::string>& arguments) {
    const std::string name(Text::lastPathComponent(command));
    if (arguments.empty() || !isInterpreter(Text::lastPathComponent(arguments[0])) ||
        !(isInterpreter(name) || isNoName(name)))
        return name;
    const auto orName = [&name](std::string found) { return found.empty() ? name : found; };
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const auto& word = arguments[i];
        const bool runs = i == 1 && word == "run" && arguments.size() > 2; // "bun run SCRIPT"
        if (namesNoScript(word))
            return name;
        if (word == "-m")
            return orName(
                i + 1 < arguments.size() ? arguments[i + 1].substr(0, arguments[i + 1].find('.')) : "");
        if (takesValue(word))
            ++i;
        else if (!word.starts_with('-') && !runs)
            return orName(scriptName(word));
    }
    return name;
}

} // namespace kelvadrome
