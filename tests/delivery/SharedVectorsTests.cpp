// What the daemon and the shell each keep in code of their own: one file of vectors proves them equal.
#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/delivery/HostPlan.h"
#include "KelvadromeKit/delivery/LiveText.h"
#include "KelvadromeKit/delivery/ProgramName.h"
#include "KelvadromeKit/delivery/TerminalAncestry.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/JSON.h"
#include "KelvadromeKit/support/Text.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

namespace {

using Words = std::vector<std::string>;

/// A row of two or three texts; null reads as absent.
struct Row {
    std::vector<std::optional<std::string>> texts;

    static Row decode(const JSONValue& value) {
        Row row;
        for (const auto text : value.array()) {
            const JSONValue one(text);
            row.texts.push_back(
                one.isNull() ? std::nullopt : std::optional<std::string>(one.string().value()));
        }
        return row;
    }
};

struct Agents {
    Words programs, needsYou, needsNobody, shells;
    std::map<std::string, std::string> names;
    std::vector<Row> displays, programNames;

    static Agents decode(const JSONValue& value) {
        const auto object = value.object();
        return {.programs = object.required<Words>("programs"),
            .needsYou = object.required<Words>("needs_you"),
            .needsNobody = object.required<Words>("needs_nobody"),
            .shells = object.required<Words>("shells"),
            .names = object.required<std::map<std::string, std::string>>("names"),
            .displays = object.required<std::vector<Row>>("displays"),
            .programNames = object.required<std::vector<Row>>("program_names")};
    }
};

template <class T>
T vectors(const std::string& name) {
    return decodeJSON<T>(Files::read(Files::join(TEST_VECTORS, name), 1 << 20).value());
}

bool needsYou(const std::string& kind) {
    Card card;
    card.kind = kind;
    card.state = "open";
    return InboxLogic::needsYou(card);
}

} // namespace

TEST(SharedVectors, agentsHaveOneNameAndOneSetOfKinds) {
    const auto agents = vectors<Agents>("agents.json");
    EXPECT_EQ(TerminalAncestry::agents(),
        (std::set<std::string, std::less<>>(agents.programs.begin(), agents.programs.end())));
    for (const auto& [id, name] : agents.names)
        EXPECT_EQ(InboxLogic::agentName(id), name);
    for (const auto& row : agents.displays)
        EXPECT_EQ(InboxLogic::agentDisplay(*row.texts[0], row.texts[1]), row.texts[2]);
    for (const auto& kind : agents.needsYou)
        EXPECT_TRUE(needsYou(kind)) << kind;
    for (const auto& kind : agents.needsNobody)
        EXPECT_FALSE(needsYou(kind)) << kind;
    EXPECT_EQ(
        HostPlan::shells(), (std::set<std::string, std::less<>>(agents.shells.begin(), agents.shells.end())));
}

TEST(SharedVectors, aProcessGoesByItsCommandOrByTheScriptThatAnInterpreterRuns) {
    for (const auto& row : vectors<Agents>("agents.json").programNames) {
        Words words;
        for (const auto word : Text::split(*row.texts[1], ' '))
            words.emplace_back(word);
        EXPECT_EQ(programName(*row.texts[0], words), *row.texts[2]) << *row.texts[1];
    }
}

TEST(SharedVectors, textIsCleanedTheSameOnBothSides) {
    const auto rows = vectors<std::vector<Row>>("typed-text.json");
    ASSERT_GT(rows.size(), 30u);
    for (const auto& row : rows)
        EXPECT_EQ(LiveText::sanitize(*row.texts[0]), row.texts[1]) << *row.texts[0];
}
