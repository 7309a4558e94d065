#include "KelvadromeKit/delivery/ShellLine.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

namespace {

const std::string id = "0123abCD-0123-4567-89ab-0123456789AB";

} // namespace

TEST(ShellLine, everyWordIsQuoted) {
    EXPECT_EQ(ShellLine::quote("it's"), R"('it'\''s')");
    EXPECT_EQ(ShellLine::quote(""), "''");
    EXPECT_EQ(ShellLine::quote("$(x) `y` \"z\" \\"), "'$(x) `y` \"z\" \\'");
    EXPECT_EQ(ShellLine::validated("/tmp/a b", {"claude"}), "cd '/tmp/a b' && 'claude'");
    EXPECT_EQ(ShellLine::validated("/'; rm -rf ~; '", {"codex", "resume", id}),
        R"(cd '/'\''; rm -rf ~; '\''' && 'codex' 'resume' ')" + id + "'");
}

TEST(ShellLine, onlyTheTemplatesPass) {
    using Words = std::vector<std::string>;
    const struct {
        const char* cwd;
        Words argv;
        bool passes;
    } rows[] = {
        {"/w", {"grok"}, true},
        {"/w", {"claude", id}, true},
        {"/w", {"claude", "--resume", id}, true},
        {"/w", {"claude", "attach", id}, true},
        {"/w", {"claude", "-r", id}, true},
        {"/w", {"vim"}, false},
        {"/w", {"/bin/claude"}, false},
        {"/w", {"Claude"}, false},
        {"/w", {"claude", "--resume"}, false},
        {"/w", {"claude", "--resume", "latest"}, false},
        {"/w", {"claude", "--resume", id + "\n"}, false},
        {"/w", {"claude", "--resume", id + "0"}, false},
        {"/w", {"claude", "--resume", "0123abCG" + id.substr(8)}, false},
        {"/w", {"claude", "--dangerous", id}, false},
        {"/w", {"claude", id, id}, false},
        {"/w", {"claude", "--resume", "-r", id}, false},
        {"/w", {}, false},
        {"w", {"claude"}, false},
        {"~/w", {"claude"}, false},
        {"", {"claude"}, false},
        {"/w\nls", {"claude"}, false},
        {"/w\x1B[A", {"claude"}, false},
        {"/w\x7F", {"claude"}, false},
        {"/ünï", {"claude"}, true},
    };
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
    EXPECT_EQ(ShellLine::open("/w", {"claude"}, std::nullopt), "cd '/w' && 'claude'");
    const Words others[] = {
        {"claude"}, {"claude", id}, {"claude", "-r", id}, {"codex", "--resume", id}, {"vim", "--resume", id}};
    for (const auto& argv : others)
        EXPECT_FALSE(ShellLine::open("/w", argv, "go"));
    for (const auto* prompt : {"", " go", "go\n", "/clear", "a\x1B[Ab", "a  b"}) {
        EXPECT_FALSE(ShellLine::open("/w", {"claude", "--resume", id}, prompt)) << prompt;
    }
}
