#include "KelvadromeKit/delivery/ShellLine.h"

#include "KelvadromeKit/delivery/LiveText.h"
#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>

#include <algorithm>

namespace kelvadrome::ShellLine {

namespace {

constexpr std::size_t maxItems = 3;

bool hasControls(std::string_view text) {
    return std::ranges::any_of(text, [](unsigned char c) { return c < 32 || c == 127; });
}

bool isSessionId(const std::string& text) {
    static const RE2 pattern("[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}");
    return RE2::FullMatch(text, pattern);
}

bool isResumeWord(const std::string& text) {
    return text == "--resume" || text == "resume" || text == "attach" || text == "-r";
}

bool isTemplate(const std::vector<std::string>& argv) {
    if (argv.empty() || argv.size() > maxItems)
        return false;
    if (argv[0] != "claude" && argv[0] != "codex" && argv[0] != "grok")
        return false;
    if (argv.size() == 1)
        return true;
    return isSessionId(argv.back()) && std::all_of(argv.begin() + 1, argv.end() - 1, isResumeWord);
}

std::string line(const std::string& cwd, const std::vector<std::string>& argv) {
    std::vector<std::string> words;
    std::ranges::transform(argv, std::back_inserter(words), quote);
    return "cd " + quote(cwd) + " && " + Text::join(words, " ");
}

} // namespace

std::string quote(std::string_view text) {
    return "'" + Text::replaceAll(text, "'", R"('\'')") + "'";
}

std::optional<std::string> validated(const std::string& cwd, const std::vector<std::string>& argv) {
    if (hasControls(cwd) || std::ranges::any_of(argv, hasControls))
        return std::nullopt;
    if (!cwd.starts_with('/') || !isTemplate(argv))
        return std::nullopt;
    return line(cwd, argv);
}

std::optional<std::vector<std::string>> openArgv(
    const std::string& cwd, const std::vector<std::string>& argv, const std::optional<std::string>& prompt) {
    if (!validated(cwd, argv))
        return std::nullopt;
    if (!prompt)
        return argv;
    // Only a resumed Claude session can carry a first prompt.
    if (argv.size() != 3 || argv[0] != "claude" || argv[1] != "--resume")
        return std::nullopt;
    if (!LiveText::isFit(*prompt))
        return std::nullopt;
    auto withPrompt = argv;
    withPrompt.insert(withPrompt.end(), {"--", *prompt});
    return withPrompt;
}

std::optional<std::string> open(
    const std::string& cwd, const std::vector<std::string>& argv, const std::optional<std::string>& prompt) {
    const auto words = openArgv(cwd, argv, prompt);
    if (!words)
        return std::nullopt;
    return line(cwd, *words);
}

} // namespace kelvadrome::ShellLine
