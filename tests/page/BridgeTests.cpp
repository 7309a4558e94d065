#include "KelvadromeKit/page/JS.h"
#include "KelvadromeKit/page/PageURL.h"
#include "KelvadromeKit/page/PercentCoding.h"
#include "KelvadromeKit/page/SkillRunCommand.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

using namespace kelvadrome;

TEST(JS, aLiteralReadsBackAsTheText) {
    for (const std::string& text :
        {std::string("a\"b\\c\n</script>"), std::string("\u2028 grüße"), std::string("\0x", 2)}) {
        const auto literal = JS::string(text);
        EXPECT_EQ(boost::json::parse(literal).as_string(), text);
    }
    EXPECT_EQ(JS::string("\xFF"), "\"\"");
}

TEST(SkillRunCommand, onlyTheCommandThatTheRunIdImplies) {
    EXPECT_EQ(SkillRunCommand::validate("a_B-9", "kd skills run a_B-9"), "kd skills run a_B-9");
    for (const auto& [id, command] :
        std::vector<std::pair<std::string, std::string>>{{"a b", "kd skills run a b"},
            {"a", "kd skills run b"}, {"a", "kd skills run a; rm"}, {"", "kd skills run "},
            {"a\n", "kd skills run a\n"}, {std::string(81, 'a'), "kd skills run " + std::string(81, 'a')}}) {
        EXPECT_FALSE(SkillRunCommand::validate(id, command)) << command;
    }
}

TEST(PercentCoding, bytesOutsideTheUnreservedOnesAreEncoded) {
    EXPECT_EQ(percentEncoded("aZ9-._~ /ü"), "aZ9-._~%20%2F%C3%BC");
    EXPECT_EQ(percentDecoded("a%20b+c"), "a b+c");
    for (const auto* bad : {"%", "%2", "%zz", "%FF"})
        EXPECT_FALSE(percentDecoded(bad)) << bad;
}

TEST(PageURL, itemsStandInOrderAndNothingOfThemEscapes) {
    const std::string base = "http://127.0.0.1:4711";
    EXPECT_EQ(
        PageURL::url(base, "/a b?x#y", ScopeFilter::family, InterfaceMode::expert, {{"q", "a&b=c d#\u00e9"}}),
        base + "/a%20b%3Fx%23y?shell=native&scope=family&mode=expert&q=a%26b%3Dc%20d%23%C3%A9");
    EXPECT_EQ(PageURL::url(base, "/", ScopeFilter::all, InterfaceMode::simple), base + "/?shell=native");
    EXPECT_EQ(PageURL::url(base, "/t/a%20b", ScopeFilter::all, InterfaceMode::simple),
        base + "/t/a%20b?shell=native");
}
