#include "KelvadromeKit/page/BridgeMessage.h"
#include "KelvadromeKit/page/JS.h"
#include "KelvadromeKit/page/PageCall.h"
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

TEST(BridgeMessage, whatIsNotUnderstoodIsOther) {
    using namespace BridgeMessage;
    const struct {
        std::string type, body;
        Message message;
    } rows[] = {
        {"route", R"({"route":"/topics"})", Route{"/topics"}},
        {"route", R"({"route":5})", Other{"route", std::nullopt}},
        {"onboarding", R"({"step":3,"primary_enabled":true})", Onboarding{"3", true}},
        {"onboarding", R"({"step":1.5,"primary_enabled":"yes"})", Onboarding{"1.5", false}},
        {"mode", R"({"mode":"expert"})", Mode{InterfaceMode::expert}},
        {"mode", R"({"mode":"Expert"})", Other{"mode", std::nullopt}},
        {"voice", "{}", Other{"voice", std::nullopt}},
        {"action", "{}", Other{"action", std::nullopt}},
        {"action", R"({"action":"chooseFolder"})", ChooseFolder{}},
        {"action", R"({"action":"runSkill","run_id":"r1","command":"kd skills run r1"})",
            RunSkill{"r1", "kd skills run r1"}},
        {"action", R"({"action":"runSkill","run_id":"r1","command":"rm -rf"})", Other{"action", "runSkill"}},
        {"surprise", R"({"action":"x"})", Other{"surprise", std::nullopt}},
    };
    for (const auto& row : rows) {
        readJSON(row.body, [&](const JSONValue& root) {
            EXPECT_EQ(parse(row.type, root.object()), row.message) << row.type << " " << row.body;
            return 0;
        });
    }
}

TEST(PercentCoding, bytesOutsideTheUnreservedOnesAreEncoded) {
    EXPECT_EQ(percentEncoded("aZ9-._~ /ü"), "aZ9-._~%20%2F%C3%BC");
    EXPECT_EQ(percentDecoded("a%20b+c"), "a b+c");
    for (const auto* bad : {"%", "%2", "%zz", "%FF"})
        EXPECT_FALSE(percentDecoded(bad)) << bad;
}

TEST(PageURL, itemsStandInOrderAndNothingOfThemEscapes) {
    using enum ScopeFilter;
    const std::string base = "http://127.0.0.1:4711";
    EXPECT_EQ(PageURL::url(base, "/topics", all, InterfaceMode::simple), base + "/topics?shell=native");
    EXPECT_EQ(PageURL::url(base, "/", family, InterfaceMode::expert, {{"q", "a&b=c d#\u00e9"}}),
        base + "/?shell=native&scope=family&mode=expert&q=a%26b%3Dc%20d%23%C3%A9");
    EXPECT_EQ(
        PageURL::url(base, "/a b?x#y", all, InterfaceMode::simple), base + "/a%20b%3Fx%23y?shell=native");
}

TEST(PageCall, textBecomesALiteralInTheScriptAndAnItemInTheFallback) {
    EXPECT_EQ(PageCall::navigate("/inbox", std::nullopt), (PageCall{"b.navigate(\"/inbox\")", "/inbox", {}}));
    EXPECT_EQ(PageCall::navigate("/", "c\"1"),
        (PageCall{"b.navigate(\"/?card=c\\\"1\")", "/", {{"card", "c\"1"}}}));
    EXPECT_EQ(PageCall::search(" \nx y\t"),
        (PageCall{
            "b.search && b.search(\"x y\") !== false && Boolean(b.search)", "/search", {{"q", "x y"}}}));
    const auto scope = PageCall::setScope(ScopeFilter::family, "/topics");
    EXPECT_TRUE(
        scope.expression.starts_with("b.setScope ? b.setScope(\"family\") !== false : (function(t){"));
    EXPECT_TRUE(scope.expression.ends_with("return false})(\"Family\")"));
    EXPECT_EQ((PageCall{"b.x()", "", {}}.script()),
        "(function(){ var b = window.kelvadrome; if (b) { return Boolean(b.x()) } return false })()");
}
