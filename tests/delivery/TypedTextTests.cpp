#include "KelvadromeKit/delivery/LiveText.h"
#include "KelvadromeKit/delivery/ShellLine.h"
#include "KelvadromeKit/support/Text.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

TEST(LiveText, lengthCountsCharacters) {
    const auto longest = Text::join(std::vector<std::string>(LiveText::maxLength, "q\u0301"), "");
    EXPECT_EQ(LiveText::sanitize(longest), longest);
    EXPECT_FALSE(LiveText::sanitize(longest + "q"));
    EXPECT_TRUE(LiveText::sanitize(longest + "  \n")) << "what is trimmed doesn't count";
    // The joiner inside is dropped like every invisible mark, which makes two characters of each.
    EXPECT_FALSE(
        LiveText::sanitize(Text::join(std::vector<std::string>(LiveText::maxLength, "👩‍👧"), "")));
}

static const std::string id = "0123abCD-0123-4567-89ab-0123456789AB";

TEST(ShellLine, everyWordIsQuoted) {
    EXPECT_EQ(ShellLine::quote("it's"), R"('it'\''s')");
    EXPECT_EQ(ShellLine::quote(""), "''");
    EXPECT_EQ(ShellLine::quote("$(x) `y` \"z\" \\"), "'$(x) `y` \"z\" \\'");
    EXPECT_EQ(ShellLine::validated("/'; rm -rf ~; '", {"codex", "resume", id}),
        R"(cd '/'\''; rm -rf ~; '\''' && 'codex' 'resume' ')" + id + "'");
}

TEST(ShellLine, onlyTheTemplatesPass) {
    using Words = std::vector<std::string>;
    const auto passes = [](const std::string& cwd, const Words& argv) {
        EXPECT_EQ(ShellLine::validated(cwd, argv).has_value(),
            ShellLine::openArgv(cwd, argv, std::nullopt) == argv);
        return ShellLine::validated(cwd, argv).has_value();
    };
    const Words good[] = {{"grok"}, {"claude", id}, {"claude", "--resume", id}, {"claude", "-r", id}};
    const Words bad[] = {{}, {"vim"}, {"/bin/claude"}, {"claude", "--resume"},
        {"claude", "--resume", id + "\n"}, {"claude", "--resume", "0123abCG" + id.substr(8)},
        {"claude", "--dangerous", id}, {"claude", "--resume", "-r", id}};
    for (const auto& argv : good)
        EXPECT_TRUE(passes("/ünï", argv)) << testing::PrintToString(argv);
    for (const auto& argv : bad)
        EXPECT_FALSE(passes("/w", argv)) << testing::PrintToString(argv);
    for (const auto* cwd : {"~/w", "/w\nls", "/w\x1B[A"})
        EXPECT_FALSE(passes(cwd, {"claude"})) << cwd;
}

TEST(ShellLine, onlyAResumedClaudeCarriesAFirstPrompt) {
    using Words = std::vector<std::string>;
    EXPECT_EQ(ShellLine::openArgv("/w", {"claude", "--resume", id}, "it's on"),
        (Words{"claude", "--resume", id, "--", "it's on"}));
    EXPECT_EQ(ShellLine::open("/w", {"claude", "--resume", id}, "it's on"),
        "cd '/w' && 'claude' '--resume' '" + id + R"(' '--' 'it'\''s on')");
    const Words others[] = {
        {"claude"}, {"claude", id}, {"claude", "-r", id}, {"codex", "--resume", id}, {"vim", "--resume", id}};
    for (const auto& argv : others)
        EXPECT_FALSE(ShellLine::open("/w", argv, "go"));
    for (const auto* prompt : {"", "go\n", "/clear"})
        EXPECT_FALSE(ShellLine::open("/w", {"claude", "--resume", id}, prompt)) << prompt;
}
