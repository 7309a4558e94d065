#include "Kelvadrome/model/NativeActions.h"

#include "tests/model/World.h"
#include "tests/support/TemporaryFolder.h"

#include <fstream>

namespace kelvadrome::test {
namespace {

using Lines = std::vector<std::string>;

TEST(Pages, theShellFollowsThePagesRoute) {
    struct Row {
        const char* route;
        NavSection section; // from `skills`
    };
    for (const auto& row :
        std::vector<Row>{{"/topics", NavSection::topics}, {"/topics/t-1?x=/agents", NavSection::topics},
            {"agents", NavSection::agents}, {"//receipts//", NavSection::receipts}, {"/", NavSection::inbox},
            {"", NavSection::inbox}, {"?card=1", NavSection::inbox}, {"/inbox", NavSection::inbox},
            {"/search?q=a", NavSection::skills}, {"/Topics", NavSection::skills}}) {
        World world;
        world.flags.section = NavSection::skills;
        world.make().followPageRoute(row.route);
        EXPECT_EQ(world.state().section, row.section) << row.route;
        world.loop.drain();
        EXPECT_EQ(world.clock->sleepers(), 0U) << "the scope `all` needs no giving back";
    }
}

TEST(Pages, aPageThatHasJustLoadedGetsTheShellsScopeBack) {
    World world;
    world.make().setScope(ScopeFilter::companies);
    EXPECT_EQ(world.defaults->string("KDScopeFilter"), "companies");
    world.model->followPageRoute("/topics");
    world.loop.advance(*world.clock, 0.24);
    EXPECT_EQ(world.web->calls.lines(), Lines{"setScope companies /"});
    world.loop.advance(*world.clock, 0.02);
    EXPECT_EQ(world.web->calls.lines(), (Lines{"setScope companies /", "setScope companies /topics"}));

    world.web->calls.clear();
    world.loop.run(world.model->connect());
    world.web->onFirstLoad();
    world.loop.advance(*world.clock, 0.41);
    EXPECT_EQ(world.web->calls.lines(), (Lines{"load s1 topics companies", "setScope companies /topics"}));
    world.model->setScope(ScopeFilter::all);
    world.web->onFirstLoad();
    world.loop.drain();
    EXPECT_EQ(world.clock->sleepers(), 0U);
}

TEST(Pages, whatIsStoredDecidesOnHowTheModelBegins) {
    World world;
    world.defaults->set("KDScopeFilter", std::string("moon"));
    world.defaults->set("KDAgentStrip", true);
    world.defaults->set("interfaceMode", std::string("expert"));
    world.flags.inspector = true;
    world.make();
    EXPECT_EQ(world.state().scope, ScopeFilter::all);
    EXPECT_TRUE(world.state().agentStripShown);
    EXPECT_EQ(world.state().interfaceMode, InterfaceMode::expert);
    EXPECT_EQ(world.web->mode, InterfaceMode::expert);
    EXPECT_FALSE(world.state().inspectorShown) << "expert mode has none";
}

TEST(Pages, anOpenedPathBecomesRouteAndFocus) {
    struct Row {
        const char* path;
        NavSection section; // from `skills`
        const char* navigated;
    };
    for (const auto& row : std::vector<Row>{{"/", NavSection::inbox, "navigate / all -"},
             {"", NavSection::inbox, "navigate / all -"},
             {"/agents?card=c-1&card=c-2", NavSection::agents, "navigate /agents all c-1"},
             {"/?x=1&card=a%20b+c?d", NavSection::inbox, "navigate / all a b+c?d"},
             {"?card=c", NavSection::inbox, "navigate / all c"},
             {"/?card", NavSection::inbox, "navigate / all -"},
             {"/search?q=1", NavSection::skills, "navigate /search all -"},
             {"/topics/t", NavSection::skills, "navigate /topics/t all -"}}) {
        World world;
        world.flags.section = NavSection::skills;
        world.make().openMain(row.path);
        EXPECT_EQ(world.state().section, row.section) << row.path;
        EXPECT_EQ(world.web->calls.lines(), Lines{row.navigated}) << row.path;
        EXPECT_EQ(world.screen->calls.lines(), (Lines{"openMainWindow", "activate"}));
    }
    World quiet;
    quiet.flags.quietWindows = true;
    quiet.make().openMain("/");
    EXPECT_EQ(quiet.screen->calls.lines(), Lines{"openMainWindow"});
}

TEST(Pages, aSectionIsOpenedInThePageOrByItsAddress) {
    World world;
    world.make().open(NavSection::topics, std::nullopt);
    EXPECT_EQ(world.web->calls.last("callShell"), R"(callShell b.navigate("/topics") -)")
        << "no page was loaded yet";
    world.loop.run(world.model->connect());
    world.model->setScope(ScopeFilter::family);
    world.model->setInterfaceMode(InterfaceMode::expert, InterfaceModeSource::menu);
    world.model->open(NavSection::inbox, std::nullopt);
    EXPECT_EQ(world.web->calls.last("callShell"),
        R"(callShell b.navigate("/") http://127.0.0.1:4711/?shell=native&scope=family&mode=expert)");
    EXPECT_EQ(world.web->url("/search", ScopeFilter::all, {{"q", "a b&c=d/é"}}),
        "http://127.0.0.1:4711/search?shell=native&mode=expert&q=a%20b%26c%3Dd%2F%C3%A9");

    world.cards({World::cardJSON("low"), World::cardJSON("high", "stop", "high")});
    world.refresh();
    world.model->openFirstNeedingYou();
    EXPECT_EQ(world.web->calls.last("navigate"), "navigate / family high");
}

TEST(Pages, aSwitchOfModeIsStoredAndEchoedUnlessItCameFromThePage) {
    World world;
    world.flags.inspector = true;
    world.make().setInterfaceMode(InterfaceMode::expert, InterfaceModeSource::page);
    EXPECT_EQ(world.state().interfaceMode, InterfaceMode::expert);
    EXPECT_EQ(world.web->mode, InterfaceMode::expert);
    EXPECT_FALSE(world.state().inspectorShown);
    EXPECT_EQ(world.defaults->string("interfaceMode"), "expert");
    EXPECT_EQ(world.web->calls.lines(), Lines{});
    world.model->setInterfaceMode(InterfaceMode::simple, InterfaceModeSource::toolbar);
    EXPECT_EQ(world.web->calls.countOf("runScript window.kelvadrome && window.kelvadrome.setMode"), 1U);
}

TEST(Pages, theAgentStripIsStoredAndShownAtOnceAndAtEachRefresh) {
    World world;
    world.make().setAgentStrip(true);
    EXPECT_EQ(world.defaults->storedBoolean("KDAgentStrip"), true);
    world.cards({World::cardJSON("a")});
    world.daemon->on("/v1/agents/status", FakeReply::failure("internal", "no"));
    world.refresh();
    world.model->setAgentStrip(false);
    world.refresh();
    EXPECT_EQ(world.screen->calls.countOf("updateAgentStrip"), 3U);
    EXPECT_EQ(world.screen->calls.lines()[0], "updateAgentStrip All clear");
    EXPECT_EQ(world.screen->calls.lines()[1], "updateAgentStrip 1 needs you");
    EXPECT_EQ(world.screen->calls.last("updateAgentStrip"), "updateAgentStrip none");
}

TEST(Pages, aURLOfOursOpensTheWindowThatIsDue) {
    for (const auto* url : {"kelvadrome://open", "KELVADROME://Open/x?y=1"}) {
        World world;
        world.make().handleOpenURL(url);
        EXPECT_EQ(world.screen->calls.lines(), (Lines{"openMainWindow", "activate"})) << url;
    }
    World world;
    for (const auto* url : {"https://open", "kelvadrome://close", "kelvadrome:open", "kelvadrome://", "",
             "kelvadrome://open me"}) {
        world.make().handleOpenURL(url);
        EXPECT_TRUE(world.screen->calls.lines().empty()) << url;
    }
    world.model->openOnboarding(false);
    world.model->handleOpenURL("kelvadrome://open"); // the window isn't made yet
    world.loop.until(
        [&] { return world.screen->calls.countOf("presentOnboarding") == 2; }, "the setup window");
    world.screen->calls.clear();
    world.model->handleOpenURL("kelvadrome://open");
    EXPECT_EQ(world.screen->calls.lines(), (Lines{"raiseOnboarding", "activate"}));
    world.model->onboardingFinished();
    EXPECT_FALSE(world.state().onboardingActive);
    EXPECT_EQ(world.screen->calls.last("close"), "closeOnboarding");
    EXPECT_EQ(world.web->calls.last("navigate"), "navigate / all -");
}

TEST(Pages, setupWithoutAPageSessionSaysSo) {
    World world;
    world.refuseLogin = true;
    world.make().openOnboarding(true);
    world.loop.until([&] { return world.state().panelError.has_value(); }, "the refusal");
    EXPECT_EQ(world.state().panelError, "kelvadrome could not open its page session.");
    EXPECT_TRUE(world.state().onboardingActive);
}

TEST(Pages, theForcedAppearanceGoesToTheScreenAndThePage) {
    for (const auto& [word, expected] : std::vector<std::pair<std::optional<std::string>, std::string>>{
             {"dark", "dark"}, {"light", "light"}, {"sepia", "system"}, {std::nullopt, "system"}}) {
        World world;
        world.flags.appearance = word;
        world.make().applyAppearance();
        EXPECT_EQ(world.screen->calls.lines(), Lines{"setAppearance " + expected});
        world.loop.run(world.model->connect());
        EXPECT_EQ(world.web->theme, word.value_or("system"));
    }
}

TEST(Pages, theFolderOfATopicIsTheFirstAbsolutePathInItsDetails) {
    for (const auto& [json, path] : std::vector<std::pair<std::string, std::optional<std::string>>>{
             {R"({"folder":"/a","folder_path":"/b"})", "/a"},
             {R"({"folder":"a","folder_path":"/b","continuity_path":"/c/d.md"})", "/b"},
             {R"({"folder":7,"folder_path":null,"continuity_path":"/c/d.md"})", "/c"},
             {R"({"continuity_path":"/d.md"})", "/"}, {R"({"continuity_path":"/c/d/"})", "/c"},
             {R"({"topic":{"topic":{"folder":"/deep"}}})", "/deep"},
             {R"({"folder":"","topic":{"continuity_path":"/c/d.md"}})", "/c"},
             {R"({"folder":"/outer","topic":{"folder":"/inner"}})", "/outer"},
             {R"({"topic":"/t"})", std::nullopt}, {"{}", std::nullopt}}) {
        EXPECT_EQ(
            readJSON(json, [](const JSONValue& root) { return NativeActions::findPath(root.object()); }),
            path)
            << json;
    }
}

TEST(Pages, aTopicsFolderIsRevealedOrItsAbsenceIsSaid) {
    for (const auto& reply : {FakeReply::failure("internal", "no", 500), FakeReply::data("{}"),
             FakeReply::data("[]"), FakeReply::raw("HTTP/1.1 200 OK\r\n\r\n<html>"), FakeReply::raw("")}) {
        World world;
        world.daemon->on("/v1/topic/detail", reply);
        world.loop.run(world.make().revealTopicFolder("t-1"));
        EXPECT_EQ(world.state().panelError, "This topic has no folder on this Mac yet.");
        EXPECT_EQ(world.daemon->requests("/v1/topic/detail").at(0).body, R"({"topic":"t-1"})");
        EXPECT_TRUE(world.screen->calls.lines().empty());
    }
    TemporaryFolder folder;
    World world;
    world.make();
    world.daemon->on(
        "/v1/topic/detail", FakeReply::data(R"({"folder":")" + folder.path().string() + R"("})"));
    world.loop.run(world.model->revealTopicFolder("t-1"));
    EXPECT_EQ(world.screen->calls.lines(), Lines{"revealFile " + folder.path().string()});
    EXPECT_EQ(world.state().panelError, std::nullopt);
}

} // namespace
} // namespace kelvadrome::test
