#include "KelvadromeKit/delivery/LiveText.h"
#include "KelvadromeKit/delivery/ShellLine.h"
#include "KelvadromeKit/support/Text.h"

#include "tests/delivery/Jobs.h"

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

TEST(LiveText, whatComesOutIsCleanAndStaysAsItIs) {
    std::mt19937 random(5);
    const std::string pieces[] = {"a", "B", "1", " ", "\x1B", "[", "]", "P", "\\", "\a", "m", ";", "\n", "\t",
        "\r", "\u0085", "\u0090", "\u009B", "\u009C", "\u009D", "\u00A0", "\u0301", "e", "\u200B", "\u200D",
        "\u202E", "\u2028", "\u2001", "\uFEFF", "/", "!", "#", "&", "\x7F", "\u037E", "👩", "\xFF",
        "\xE2\x82"};
    int kept = 0;
    for (int round = 0; round < 50000; ++round) {
        const auto text = test::randomText(random, pieces, 12);
        const auto clean = LiveText::sanitize(text);
        if (!clean)
            continue;
        ++kept;
        EXPECT_TRUE(LiveText::isFit(*clean)) << text;
        EXPECT_EQ(LiveText::sanitize(*clean), clean) << text;
        EXPECT_EQ(clean->find("  "), std::string::npos) << text;
        EXPECT_EQ(std::string_view("/!#& ").find(clean->front()), std::string_view::npos) << text;
        for (const auto c : Text::scalars(*clean)) {
            const bool control = c < 32 || (c >= 127 && c < 160) || c == 0x2028 || c == 0x2029;
            const bool invisible =
                (c >= 0x200B && c <= 0x200F) || (c >= 0x202A && c <= 0x202E) || c == 0xFEFF;
            EXPECT_FALSE(control || invisible) << text;
        }
    }
    EXPECT_GT(kept, 10000);
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
    const struct {
        const char* cwd;
        Words argv;
        bool passes;
    } rows[] = {{"/w", {"grok"}, true}, {"/w", {"claude", id}, true},
        {"/w", {"claude", "--resume", id}, true}, {"/w", {"claude", "-r", id}, true}, {"/w", {"vim"}, false},
        {"/w", {"/bin/claude"}, false}, {"/w", {"claude", "--resume"}, false},
        {"/w", {"claude", "--resume", id + "\n"}, false},
        {"/w", {"claude", "--resume", "0123abCG" + id.substr(8)}, false},
        {"/w", {"claude", "--dangerous", id}, false}, {"/w", {"claude", "--resume", "-r", id}, false},
        {"/w", {}, false}, {"~/w", {"claude"}, false}, {"/w\nls", {"claude"}, false},
        {"/w\x1B[A", {"claude"}, false}, {"/ünï", {"claude"}, true}};
    for (const auto& row : rows) {
        EXPECT_EQ(ShellLine::validated(row.cwd, row.argv).has_value(), row.passes)
            << row.cwd << " " << testing::PrintToString(row.argv);
        EXPECT_EQ(ShellLine::openArgv(row.cwd, row.argv, std::nullopt),
            row.passes ? std::optional(row.argv) : std::nullopt);
    }
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
