#include "KelvadromeKit/bar/BarPlace.h"
#include "KelvadromeKit/bar/BarText.h"
#include "KelvadromeKit/bar/HotkeyGesture.h"
#include "KelvadromeKit/bar/HotkeySpec.h"
#include "KelvadromeKit/bar/TalkProposal.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

TEST(HotkeySpec, labelsAreReadAndWritten) {
    struct Row {
        std::string label;
        std::string printed; // empty: refused
        std::uint32_t code = 0, modifiers = 0;
    };
    const std::vector<Row> rows{
        {"Control Option B", "Control Option B", 0x0B, 0x1800},
        {"Option Control b", "Control Option B", 0x0B, 0x1800},
        {"  Command   A ", "Command A", 0x00, 0x100},
        {"Command Option Shift Control F12", "Control Option Shift Command F12", 0x6F, 0x1B00},
        {"Control f1", "Control F1", 0x7A, 0x1000},
        {"Option Space", "Option Space", 0x31, 0x800},
        {"Control Control 0", "Control 0", 0x1D, 0x1000},
        {"", ""},
        {"   ", ""},
        {"B", ""},
        {"Shift A", ""},
        {"Control", ""},
        {"Control Option F13", ""},
        {"control option b", ""},
        {"Control space", ""},
        {"Control\tB", ""},
        {"Hyper B", ""},
    };
    for (const auto& [label, printed, code, modifiers] : rows) {
        const auto spec = HotkeySpec::fromLabel(label);
        ASSERT_EQ(spec.has_value(), !printed.empty()) << label;
        if (!spec)
            continue;
        EXPECT_EQ(spec->label(), printed);
        EXPECT_EQ(spec->keyCode, code) << label;
        EXPECT_EQ(spec->modifiers, modifiers) << label;
        EXPECT_EQ(HotkeySpec::fromLabel(spec->label()), spec);
    }
    EXPECT_EQ(keycaps("Control Option Shift Command Space"),
        (std::vector<std::string>{"⌃", "⌥", "⇧", "⌘", "Space"}));
}

TEST(HotkeyGesture, aTapTogglesAndAHoldTalks) {
    using enum HotkeyGesture::Effect;
    struct Step {
        char what; // "d"own, "t"ick, "u"p
        double at;
        HotkeyGesture::Effects effects;
    };
    struct Row {
        const char* name;
        bool barOpen, capable;
        std::vector<Step> steps;
    };
    const std::vector<Row> rows{
        {"a tap opens", false, true, {{'d', 1, {openBar}}, {'u', 1.1, {}}, {'t', 1.35, {}}}},
        {"a tap closes", true, true, {{'d', 1, {}}, {'u', 1.34, {closeBar}}, {'t', 1.36, {}}}},
        {"repeats are nothing", false, true, {{'d', 1, {openBar}}, {'d', 1.2, {}}, {'u', 1.3, {}}}},
        {"a hold talks", false, true,
            {{'d', 1, {openBar}}, {'t', 1.34, {}}, {'t', 1.351, {startTalk}}, {'t', 2, {}}, {'d', 2, {}},
                {'u', 3, {stopTalk}}, {'u', 3, {}}}},
        {"a hold on the open bar leaves it open", true, true,
            {{'d', 1, {}}, {'t', 1.4, {startTalk}}, {'u', 2, {stopTalk}}}},
        {"without a route a hold is a tap", false, false,
            {{'d', 1, {openBar}}, {'t', 1.4, {}}, {'u', 3, {}}}},
        {"nothing without a press", false, true, {{'t', 1, {}}, {'u', 1, {}}}},
        {"twice in a row", false, true,
            {{'d', 1, {openBar}}, {'t', 1.5, {startTalk}}, {'u', 2, {stopTalk}}, {'d', 3, {openBar}},
                {'u', 3.1, {}}}},
    };
    for (const auto& row : rows) {
        HotkeyGesture gesture;
        for (const auto& [what, at, effects] : row.steps) {
            const auto got = what == 'd'   ? gesture.keyDown(at, row.barOpen, row.capable)
                             : what == 't' ? gesture.tick(at)
                                           : gesture.keyUp(at);
            EXPECT_EQ(got, effects) << row.name << " at " << at;
        }
        EXPECT_FALSE(gesture.downAt || gesture.talking) << row.name;
    }
}

TEST(BarText, anyTextBecomesOneLine) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"a\r\nb\nc", "a b c"},
        {"a  b", "a  b"},
        {"a \n  b", "a b"},
        {"  a\n", " a "},
        {"a  b\nc   d", "a b c d"},
        {"a\n\r\n\nb", "a b"},
        {"ä\u2028ö\u2029ü\u0085ß\v\f!", "ä ö ü ß !"},
        {"a\tb\nc", "a\tb c"},
        {"", ""},
    };
    for (const auto& [text, line] : rows)
        EXPECT_EQ(BarText::sanitize(text), line) << text;
}

TEST(BarPlace, theBarStandsInTheUpperMiddle) {
    EXPECT_EQ(barPlace({0, 0, 1920, 1080}), (BarArea{640, 129.6, 640, 440}));
    EXPECT_EQ(barPlace({1920, 30, 800, 500}), (BarArea{2000, 94, 640, 440}));
    EXPECT_EQ(barPlace({0, 0, 640, 480}), (BarArea{0, 64, 640, 440}));
}

TEST(TalkProposal, repliesAreReadAndSummedUp) {
    const auto title = [](const std::string& id) {
        return id == "t" ? std::optional<std::string>("Payments") : std::nullopt;
    };
    struct Row {
        std::string json, summary;
        std::optional<std::string> clarify;
    };
    const std::vector<Row> rows{
        {R"({"parse":"rules","proposal":{"agent":"claude","mode":"review-readonly","topic":"t"},"card_id":"c"})",
            "Claude Code, review, Payments", std::nullopt},
        {R"({"parse":"x","proposal":{"agent":"pi","mode":"paint","goal":"g"},"card_id":"c"})", "pi, paint",
            std::nullopt},
        {R"({"parse":"x","proposal":{"topic":"unknown","clarify":"Which?"},"card_id":"c"})", "unknown",
            "Which?"},
        {R"({"parse":"x","proposal":{"goal":"only"},"card_id":"c"})", "Request saved", std::nullopt},
        {R"({"parse":"x","proposal":null,"card_id":"c"})", "Request saved", std::nullopt},
    };
    for (const auto& [json, summary, clarify] : rows) {
        const auto proposal = decodeJSON<TalkProposal>(json);
        EXPECT_EQ(proposal.cardId, "c");
        EXPECT_EQ(proposal.summary(title), summary);
        EXPECT_EQ(proposal.clarify(), clarify);
    }
    for (const auto* json : {R"({"proposal":{},"card_id":"c"})", R"({"parse":"x"})",
             R"({"parse":"x","card_id":"c","proposal":{"goal":3}})"})
        EXPECT_THROW(decodeJSON<TalkProposal>(json), DecodingError) << json;
}
